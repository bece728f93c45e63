#include <HtTftpClient.h>

#include "Libraries/HtBase/Support/Diagnostics.h"
#include "Libraries/HtBase/Support/Results.h"
#include "Libraries/HtBase/TftpClient.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <cerrno>
#include <new>
#include <string>

using QmUtilsLib::Result;

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/HtTftpClient";

// Callers return this call itself, because a copy of the result would lose its internal code. If
// there is no memory for the description, the result has none.
HtResult Convert( const Result& aResult )
{
    try
    {
        const QmUtilsLib::String& lDescription = aResult.GetDescription();
        if ( lDescription.GetLength() != 0 )
        {
            return HtResult( aResult.GetCode(), aResult.GetOSCode(),
                             HtString( lDescription.GetAscii() ) );
        }
    }
    catch ( const std::bad_alloc& )
    {
        // The codes are set already.
    }
    return HtResult( aResult.GetCode(), aResult.GetOSCode() );
}

// The refusal is logged. If there is no memory for its text, the result has its code alone.
HtResult RefuseAddress()
{
    try
    {
        const QmUtilsLib::Logger lLogger( HtBaseLib::LOGGER_NAME, HtBaseLib::LOGGER_CONFIGURATION );
        return Convert( lLogger.LogResult( HtBaseLib::INVALID_ARGUMENT, UNIT, __LINE__,
                                           "HtTftpClient::Init", "Invalid IP address provided." ) );
    }
    catch ( const std::bad_alloc& )
    {
        return HtResult( HtBaseLib::INVALID_ARGUMENT );
    }
}

} // namespace

HtTftpClient::HtTftpClient()
    : mThis( new HtBaseLib::TftpClient )
{
}

HtTftpClient::~HtTftpClient()
{
    delete mThis;
}

HtResult HtTftpClient::Init( const HtString& aAddress, const HtString& aRemoteFileName )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    WdUtilsLib::Network::IpAddress lAddress;
    if ( !lAddress.Set( aAddress.GetAscii() ) )
    {
        return RefuseAddress();
    }
    return Convert( mThis->Init( lAddress, aRemoteFileName.GetAscii() ) );
}

HtResult HtTftpClient::SendFile( const HtString& aPath )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->SendFile( aPath.GetAscii() ) );
}

HtResult HtTftpClient::SendData( const unsigned char* aData, unsigned int aSize )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->SendData( aData, aSize ) );
}

HtResult HtTftpClient::GetFile( const HtString& aPath )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->GetFile( aPath.GetAscii() ) );
}

HtResult HtTftpClient::GetData( unsigned char* aBuffer, unsigned int aSize,
                                unsigned int* aReceived )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    *aReceived = 0;
    unsigned int lSize = aSize;
    const Result lResult = mThis->GetData( aBuffer, lSize );
    // KEEP: After a failure `HtTftpClient::GetData` reports 0 bytes, although the engine reports
    // what was stored.
    if ( lResult.IsOK() )
    {
        *aReceived = lSize;
    }
    return Convert( lResult );
}

HtResult HtTftpClient::GetProgress( long long& aDone, long long& aTotal )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->GetProgress( aDone, aTotal ) );
}

HtResult HtTftpClient::GetTransferResult() const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->GetTransferResult() );
}

HtResult HtTftpClient::GetWarning( HtString& aText )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    try
    {
        std::string lWarning;
        const Result lResult = mThis->GetWarning( lWarning );
        // KEEP: `HtTftpClient::GetWarning` empties the caller's text also when there is no
        // warning.
        aText = HtString( lWarning.c_str() );
        return Convert( lResult );
    }
    catch ( const std::bad_alloc& )
    {
        return HtResult( HtResult::GENERIC_ERROR, ENOMEM );
    }
}

HtResult HtTftpClient::Abort()
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return Convert( mThis->Abort() );
}
