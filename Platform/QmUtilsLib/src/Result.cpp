#include <QmUtilsLib/Result.h>

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/String.h>

#include <cstdio>
#include <map>
#include <string>

namespace QmUtilsLib
{

namespace
{

struct CodeName
{
    unsigned int mCode;
    const char* mName;
};

// Every code whose role is known, and only those.
constexpr CodeName CODE_NAMES[] = {
    { Result::OK, "OK" },
    { Result::ABORTED, "ABORTED" },
    { Result::NOT_CONNECTED, "NOT_CONNECTED" },
    { Result::BUSY, "BUSY" },
    { Result::TIMEOUT, "TIMEOUT" },
    { Result::NOT_SUPPORTED, "NOT_SUPPORTED" },
    { Result::NOT_INITIALIZED, "NOT_INITIALIZED" },
    { Result::GENERIC_ERROR, "GENERIC_ERROR" },
    { Result::PENDING, "PENDING" },
};

// The names of codes without a role. They must outlive every result, so the map is never destroyed
// and its entries never move or go.
const char* GetNumericName( unsigned int aCode )
{
    static Mutex& sMutex = *new Mutex;
    static auto& sNames = *new std::map<unsigned int, std::string>;

    LockScope lLock( sMutex );
    std::string& lName = sNames[aCode];
    if ( lName.empty() )
    {
        char lText[16];
        std::snprintf( lText, sizeof( lText ), "0x%04X", aCode );
        lName = lText;
    }
    return lName.c_str();
}

} // namespace

Result::Result()
    : Result( NOT_INITIALIZED )
{
}

Result::Result( unsigned int aCode )
    : Result( aCode, 0 )
{
}

Result::Result( unsigned int aCode, unsigned int aOSCode )
    : mCode( aCode )
    , mOSCode( aOSCode )
{
}

Result::Result( unsigned int aCode, unsigned int aOSCode, const String& aDescription )
    : mCode( aCode )
    , mOSCode( aOSCode )
{
    if ( aDescription.GetLength() != 0 )
    {
        mDescription = std::make_shared<const String>( aDescription );
    }
}

const String& Result::GetDescription() const
{
    static const String& sEmpty = *new String;
    return mDescription != nullptr ? *mDescription : sEmpty;
}

const char* Result::GetCodeString() const
{
    for ( const CodeName& lEntry : CODE_NAMES )
    {
        if ( lEntry.mCode == mCode )
        {
            return lEntry.mName;
        }
    }
    return GetNumericName( mCode );
}

const Result& Result::operator|=( const Result& aOther )
{
    if ( !IsFailure() && !aOther.IsOK() )
    {
        *this = aOther;
    }
    return *this;
}

} // namespace QmUtilsLib
