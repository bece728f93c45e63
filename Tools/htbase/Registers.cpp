#include "Tools/htbase/Registers.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace HtBaseTool
{

using QmUtilsLib::Result;

namespace
{

// For one address, or for several.
template <typename Target>
void AddAddressOption( CLI::App& aCommand, Target& aTarget )
{
    aCommand.add_option( "ADDRESS", aTarget, "Decimal or 0x, a multiple of 4" )
        ->type_name( "" )
        ->required();
}

RegisterValue ParsePair( const std::string& aText, AddressBits aBits )
{
    const size_t lEqual = aText.find( '=' );
    if ( lEqual == std::string::npos )
    {
        throw MakeUsageFailure( "'" + aText + "' is not of the form ADDRESS=VALUE" );
    }
    return { ParseRegisterAddress( aText.substr( 0, lEqual ), aBits ),
             ParseNumber( aText.substr( lEqual + 1 ), "value" ) };
}

void Report( Program& aProgram, const Device& aDevice, const RegisterValue& aRegister )
{
    if ( !aProgram.mIsJson )
    {
        Print( FormatAddress( aRegister.mAddress, aDevice.GetAddressBits() ) + "  " +
               FormatHex( aRegister.mValue ) + "  " + std::to_string( aRegister.mValue ) + "\n" );
        return;
    }
    aProgram.mReport["registers"].push_back(
        { { "address", aRegister.mAddress }, { "value", aRegister.mValue } } );
}

// ", 1 of 3 registers ..." where several were asked for.
std::string GetHowMany( size_t aDone, size_t aCount, const char* aWhat )
{
    return aCount == 1 ? std::string()
                       : ", " + std::to_string( aDone ) + " of " + std::to_string( aCount ) +
                             " registers were " + aWhat;
}

} // namespace

void AddRegisterAddress( CLI::App& aCommand, std::string& aText )
{
    AddAddressOption( aCommand, aText );
}

void AddRegisterAddresses( CLI::App& aCommand, std::vector<std::string>& aTexts )
{
    AddAddressOption( aCommand, aTexts );
}

void AddRegisterPairs( CLI::App& aCommand, std::vector<std::string>& aTexts )
{
    aCommand
        .add_option( "ADDRESS=VALUE", aTexts,
                     "Decimal or 0x, a value of 32 bits each, in this order" )
        ->type_name( "" )
        ->required();
}

uint64_t ParseRegisterAddress( const std::string& aText, AddressBits aBits )
{
    const uint64_t lAddress = ParseAddress( aText, aBits );
    if ( lAddress % 4 != 0 )
    {
        throw MakeUsageFailure( "address '" + aText +
                                "' is not a multiple of 4, as a register's address must be" );
    }
    return lAddress;
}

std::vector<uint64_t> ParseRegisterAddresses( const std::vector<std::string>& aTexts,
                                              AddressBits aBits )
{
    std::vector<uint64_t> lAddresses;
    std::transform( aTexts.begin(), aTexts.end(), std::back_inserter( lAddresses ),
                    [aBits]( const std::string& aText )
                    { return ParseRegisterAddress( aText, aBits ); } );
    return lAddresses;
}

std::vector<RegisterValue> ParseRegisterPairs( const std::vector<std::string>& aTexts,
                                               AddressBits aBits )
{
    std::vector<RegisterValue> lRegisters;
    std::transform( aTexts.begin(), aTexts.end(), std::back_inserter( lRegisters ),
                    [aBits]( const std::string& aText ) { return ParsePair( aText, aBits ); } );
    return lRegisters;
}

std::string GetNoneWritten( size_t aCount )
{
    return GetHowMany( 0, aCount, "written" );
}

void BeginRegisters( Program& aProgram, const Device& aDevice )
{
    aProgram.mReport["device"] = aDevice.GetName();
    aProgram.mReport["registers"] = nlohmann::ordered_json::array();
}

void ReadRegisters( Program& aProgram, Device& aDevice, const std::vector<uint64_t>& aAddresses )
{
    size_t lDone = 0;
    for ( const uint64_t lAddress : aAddresses )
    {
        uint32_t lValue = 0;
        const Result lResult = aDevice.ReadRegister( lAddress, lValue );
        aProgram.mReport["statistics"] = aDevice.GetStatistics();
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure( "read register " +
                                           FormatAddress( lAddress, aDevice.GetAddressBits() ),
                                       lResult, GetHowMany( lDone, aAddresses.size(), "read" ) );
        }
        Report( aProgram, aDevice, { lAddress, lValue } );
        ++lDone;
    }
}

void WriteRegisters( Program& aProgram, const Device& aDevice,
                     const std::vector<RegisterValue>& aRegisters, const RegisterWrite& aWrite )
{
    size_t lDone = 0;
    for ( const RegisterValue& lRegister : aRegisters )
    {
        const Result lResult = aWrite( lRegister );
        aProgram.mReport["statistics"] = aDevice.GetStatistics();
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure(
                "write " + FormatHex( lRegister.mValue ) + " to register " +
                    FormatAddress( lRegister.mAddress, aDevice.GetAddressBits() ),
                lResult, GetHowMany( lDone, aRegisters.size(), "written" ) );
        }
        Report( aProgram, aDevice, lRegister );
        ++lDone;
    }
}

} // namespace HtBaseTool
