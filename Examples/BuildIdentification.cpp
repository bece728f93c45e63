// Builds the payload that gives a device its name, from the firmware payload made for it.
//
//     BuildIdentification firmware.dfw camera1 id.dfw
//
// Exit status: 0 done, 1 the payload is not whole or could not be written, 2 wrong usage.

#include <HtDfwPayload.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

constexpr std::size_t NAME_MAX_SIZE = 255;

// The builder is OK always: a record that the firmware payload lacks is missing here too. Each
// record is a letter, a length and so many bytes; a name's field has 16 bytes at least.
bool IsWhole( const unsigned char* aBytes, unsigned int aSize )
{
    unsigned int lPosition = 0;
    for ( const char lType : { 'T', 'V', 'I' } ) // target, version, identification
    {
        if ( lPosition + 2 > aSize || static_cast<char>( aBytes[lPosition] ) != lType )
        {
            return false;
        }
        const unsigned int lLength = aBytes[lPosition + 1];
        lPosition += 2 + ( lType == 'I' ? std::max( lLength, 16U ) : lLength );
    }
    return lPosition == aSize;
}

// The payload classes print what is wrong with a file on standard output, so it is asked before.
bool CanRead( const char* aPath )
{
    std::FILE* const lFile = std::fopen( aPath, "rb" );
    const bool lCanRead = lFile != nullptr && std::fgetc( lFile ) != EOF;
    return ( lFile == nullptr || std::fclose( lFile ) == 0 ) && lCanRead;
}

bool WriteFile( const char* aPath, const unsigned char* aBytes, unsigned int aSize )
{
    std::FILE* const lFile = std::fopen( aPath, "wb" );
    if ( lFile == nullptr )
    {
        return false;
    }
    const bool lIsWritten = std::fwrite( aBytes, 1, aSize, lFile ) == aSize;
    return std::fclose( lFile ) == 0 && lIsWritten;
}

} // namespace

int main( int aCount, char** aArguments )
{
    const std::size_t lNameSize = aCount == 4 ? std::strlen( aArguments[2] ) : 0;
    if ( lNameSize == 0 || lNameSize > NAME_MAX_SIZE )
    {
        std::fprintf( stderr, "usage: BuildIdentification FIRMWARE NAME OUTPUT, with a firmware "
                              "payload, a name of 1 to 255 bytes and the file to make\n" );
        return 2;
    }
    if ( !CanRead( aArguments[1] ) )
    {
        std::fprintf( stderr, "BuildIdentification: cannot read %s\n", aArguments[1] );
        return 2;
    }
    unsigned char lBytes[512];
    unsigned int lSize = 0;
    const HtResult lResult = HtDfwPayload::GetDeviceIdRecord( aArguments[1], aArguments[2], lBytes,
                                                              sizeof( lBytes ), lSize );
    if ( !lResult.IsOK() || !IsWhole( lBytes, lSize ) )
    {
        std::fprintf( stderr, "BuildIdentification: %s has no target or no version record\n",
                      aArguments[1] );
        return 1;
    }
    if ( !WriteFile( aArguments[3], lBytes, lSize ) )
    {
        std::fprintf( stderr, "BuildIdentification: cannot write %s: %s\n", aArguments[3],
                      std::strerror( errno ) );
        return 1;
    }
    std::printf( "%u bytes for %s\n", lSize, aArguments[2] );
    return 0;
}
