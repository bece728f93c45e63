#include "Simulators/Description.h"

#include <cstdio>

namespace Simulators
{

namespace
{

const char CATEGORIES[] =
    R"(<Category Name="Root" NameSpace="Standard">
  <pFeature>DeviceControl</pFeature><pFeature>ImageFormatControl</pFeature>
  <pFeature>AcquisitionControl</pFeature><pFeature>TransportLayerControl</pFeature>
</Category>
<Category Name="DeviceControl" NameSpace="Standard">
  <pFeature>DeviceVendorName</pFeature><pFeature>DeviceModelName</pFeature>
  <pFeature>DeviceSerialNumber</pFeature><pFeature>Scratch</pFeature>
</Category>
<Category Name="ImageFormatControl" NameSpace="Standard">
  <pFeature>Width</pFeature><pFeature>Height</pFeature><pFeature>PixelFormat</pFeature>
</Category>
<Category Name="AcquisitionControl" NameSpace="Standard">
  <pFeature>AcquisitionMode</pFeature>
  <pFeature>AcquisitionStart</pFeature><pFeature>AcquisitionStop</pFeature>
</Category>
<Category Name="TransportLayerControl" NameSpace="Standard">
  <pFeature>PayloadSize</pFeature>
</Category>
)";

const char FEATURES[] =
    R"(<Integer Name="Scratch" NameSpace="Custom"><pValue>ScratchReg</pValue></Integer>
<Integer Name="Width" NameSpace="Standard">
  <pValue>WidthReg</pValue><Min>4</Min><Max>4096</Max><Inc>4</Inc>
</Integer>
<Integer Name="Height" NameSpace="Standard">
  <pValue>HeightReg</pValue><Min>1</Min><Max>4096</Max><Inc>1</Inc>
</Integer>
<Enumeration Name="PixelFormat" NameSpace="Standard">
  <EnumEntry Name="Mono8" NameSpace="Standard"><Value>0x01080001</Value></EnumEntry>
  <pValue>PixelFormatReg</pValue>
</Enumeration>
<Enumeration Name="AcquisitionMode" NameSpace="Standard">
  <EnumEntry Name="Continuous" NameSpace="Standard"><Value>0</Value></EnumEntry>
  <Value>0</Value>
</Enumeration>
<Command Name="AcquisitionStart" NameSpace="Standard">
  <pValue>AcquisitionReg</pValue><CommandValue>1</CommandValue>
</Command>
<Command Name="AcquisitionStop" NameSpace="Standard">
  <pValue>AcquisitionReg</pValue><CommandValue>0</CommandValue>
</Command>
<IntSwissKnife Name="PayloadSize" NameSpace="Standard">
  <pVariable Name="W">Width</pVariable><pVariable Name="H">Height</pVariable>
  <Formula>W * H</Formula>
</IntSwissKnife>
)";

const char TAIL[] = R"(<Port Name="Device" NameSpace="Standard"></Port>
</RegisterDescription>
)";

std::string DescribeDevice( const Description& aDescription )
{
    return R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName=")" +
           aDescription.mModelName + R"(" VendorName="HtBase" ToolTip="Virtual device"
  StandardNameSpace=")" +
           aDescription.mNameSpace +
           R"(" SchemaMajorVersion="1" SchemaMinorVersion="1" SchemaSubMinorVersion="0"
  MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
  ProductGuid=")" +
           aDescription.mProductGuid + R"(" VersionGuid=")" + aDescription.mVersionGuid + R"("
  xmlns="http://www.genicam.org/GenApi/Version_1_1">
)";
}

std::string DescribeText( const char* aName, const Description::Text& aText )
{
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "<StringReg Name=\"%s\" NameSpace=\"Standard\">\n"
                   "  <Address>0x%llX</Address><Length>%u</Length><AccessMode>RO</AccessMode>"
                   "<pPort>Device</pPort>\n</StringReg>\n",
                   aName, static_cast<unsigned long long>( aText.mAddress ),
                   static_cast<unsigned int>( aText.mSize ) );
    return lText;
}

std::string DescribeWord( const char* aName, uint64_t aAddress, const std::string& aEndianess )
{
    char lText[400];
    std::snprintf( lText, sizeof( lText ),
                   "<IntReg Name=\"%s\" NameSpace=\"Custom\">\n"
                   "  <Address>0x%llX</Address><Length>4</Length><AccessMode>RW</AccessMode>\n"
                   "  <pPort>Device</pPort><Sign>Unsigned</Sign>"
                   "<Endianess>%s</Endianess>\n</IntReg>\n",
                   aName, static_cast<unsigned long long>( aAddress ), aEndianess.c_str() );
    return lText;
}

} // namespace

std::string MakeDescription( const Description& aDescription )
{
    const std::string& lEndianess = aDescription.mEndianess;
    std::string lText = DescribeDevice( aDescription );
    lText += CATEGORIES;
    lText += DescribeText( "DeviceVendorName", aDescription.mVendorText );
    lText += DescribeText( "DeviceModelName", aDescription.mModelText );
    lText += DescribeText( "DeviceSerialNumber", aDescription.mSerialText );
    lText += FEATURES;
    lText += DescribeWord( "WidthReg", aDescription.mWidth, lEndianess );
    lText += DescribeWord( "HeightReg", aDescription.mHeight, lEndianess );
    lText += DescribeWord( "PixelFormatReg", aDescription.mPixelFormat, lEndianess );
    lText += DescribeWord( "AcquisitionReg", aDescription.mAcquisition, lEndianess );
    lText += DescribeWord( "ScratchReg", aDescription.mScratch, lEndianess );
    lText += TAIL;
    return lText;
}

} // namespace Simulators
