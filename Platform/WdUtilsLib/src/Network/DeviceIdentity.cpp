#include <WdUtilsLib/Network/DeviceIdentity.h>

#include <QmUtilsLib/Mutex.h>

#include <new>
#include <set>
#include <string>

namespace WdUtilsLib
{
namespace Network
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Mutex;

namespace
{

// What is known of one product.
struct Addresses
{
    std::set<EthernetAddress> mAddresses;
    std::set<DeviceIdentity::Prefix> mPrefixes;

    bool Contains( const EthernetAddress& aAddress ) const
    {
        const EthernetAddress::Bytes& lBytes = aAddress.GetBytes();
        return mAddresses.count( aAddress ) != 0 ||
               mPrefixes.count( { lBytes[0], lBytes[1], lBytes[2] } ) != 0;
    }
};

struct Table
{
    Mutex mMutex;
    Addresses mDevices QMUTILSLIB_GUARDED_BY( mMutex );
    Addresses mTransmitters QMUTILSLIB_GUARDED_BY( mMutex );

    Addresses& Get( DeviceIdentity::Product aProduct ) QMUTILSLIB_REQUIRES( mMutex )
    {
        return aProduct == DeviceIdentity::Product::DEVICE ? mDevices : mTransmitters;
    }
};

// Never destroyed, because exit handlers may still make records, which ask it.
Table& GetTable()
{
    alignas( Table ) static unsigned char sStorage[sizeof( Table )];
    static Table& sTable = *new ( sStorage ) Table;
    return sTable;
}

bool IsKnown( DeviceIdentity::Product aProduct, const EthernetAddress& aAddress )
{
    Table& lTable = GetTable();
    LockScope lLock( lTable.mMutex );
    return lTable.Get( aProduct ).Contains( aAddress );
}

} // namespace

void DeviceIdentity::Add( Product aProduct, const EthernetAddress& aAddress )
{
    Table& lTable = GetTable();
    LockScope lLock( lTable.mMutex );
    lTable.Get( aProduct ).mAddresses.insert( aAddress );
}

void DeviceIdentity::Add( Product aProduct, const Prefix& aPrefix )
{
    Table& lTable = GetTable();
    LockScope lLock( lTable.mMutex );
    lTable.Get( aProduct ).mPrefixes.insert( aPrefix );
}

bool DeviceIdentity::Add( Product aProduct, const char* aText )
{
    EthernetAddress lAddress;
    if ( lAddress.Set( aText ) )
    {
        Add( aProduct, lAddress );
        return true;
    }
    if ( aText == nullptr )
    {
        return false;
    }
    // Three bytes read as the start of an address of six.
    const std::string lText = aText;
    if ( !lAddress.Set( ( lText + ":0:0:0" ).c_str() ) &&
         !lAddress.Set( ( lText + "-0-0-0" ).c_str() ) )
    {
        return false;
    }
    const EthernetAddress::Bytes& lBytes = lAddress.GetBytes();
    Add( aProduct, Prefix{ lBytes[0], lBytes[1], lBytes[2] } );
    return true;
}

void DeviceIdentity::Clear()
{
    Table& lTable = GetTable();
    LockScope lLock( lTable.mMutex );
    lTable.mDevices = Addresses();
    lTable.mTransmitters = Addresses();
}

bool DeviceIdentity::IsCorvaneDevice( const EthernetAddress& aAddress )
{
    return IsKnown( Product::DEVICE, aAddress );
}

bool DeviceIdentity::IsCorvaneTransmitter( const EthernetAddress& aAddress )
{
    return IsKnown( Product::TRANSMITTER, aAddress );
}

} // namespace Network
} // namespace WdUtilsLib
