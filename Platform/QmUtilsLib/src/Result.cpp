#include <QmUtilsLib/Result.h>

#include "Immortal.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/String.h>

#include <cstdio>
#include <map>
#include <new>
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

// The names of codes without a role. They must outlive every result, so none moves or goes.
struct NumericNames
{
    Mutex mMutex;
    std::map<unsigned int, std::string> mNames QMUTILSLIB_GUARDED_BY( mMutex );
};

// So many of them are kept, since a program may meet any number of codes.
constexpr std::size_t MAX_NUMERIC_NAMES = 4096;
constexpr const char* UNNAMED = "UNNAMED";

const char* GetNumericName( unsigned int aCode )
{
    auto& lKept = GetImmortal<NumericNames>();
    LockScope lLock( lKept.mMutex );
    const auto lFound = lKept.mNames.find( aCode );
    if ( lFound != lKept.mNames.end() )
    {
        return lFound->second.c_str();
    }
    if ( lKept.mNames.size() >= MAX_NUMERIC_NAMES )
    {
        return UNNAMED;
    }
    char lText[16];
    std::snprintf( lText, sizeof( lText ), "0x%04X", aCode );
    try
    {
        return lKept.mNames.emplace( aCode, lText ).first->second.c_str();
    }
    catch ( const std::bad_alloc& )
    {
        return UNNAMED;
    }
}

} // namespace

Result::Result( unsigned int aCode, unsigned int aOSCode, const String& aDescription )
    : mCode( aCode )
    , mOSCode( aOSCode )
{
    if ( aDescription.GetLength() == 0 )
    {
        return;
    }
    try
    {
        mDescription = std::make_shared<const String>( aDescription );
    }
    catch ( const std::bad_alloc& )
    {
        // The code counts more than its text.
    }
}

const String& Result::GetDescription() const
{
    return mDescription != nullptr ? *mDescription : GetImmortal<const String>();
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
