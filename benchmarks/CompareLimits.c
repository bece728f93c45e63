// The least that each piece of work can cost: bare loops of system calls and decoders, without checks,
// retries, locks and statistics. benchmarks/compare runs them beside the library and beside programs of
// others. A sub-command that repeats something prints how long that took, in nanoseconds.
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum
{
    GVCP_PORT = 3956,
    TFTP_PORT = 69,
    HEADER_SIZE = 8,  // of GVCP
    MEMORY_SIZE = 512, // bytes of one memory read
    REGISTERS_SIZE = 0x10000,
    DESCRIPTION_ADDRESS = 0x8000,
    BLOCK_SIZE = 512, // of TFTP
    BLOCK_HEADER_SIZE = 4,
    WARM_UP = 200, // repetitions before the clock is read
    DATAGRAM_SIZE = 1024
};

static void Require( int aHolds, const char* aWhat )
{
    if ( !aHolds )
    {
        perror( aWhat );
        exit( 1 );
    }
}

static long long Now( void )
{
    struct timespec lTime;
    clock_gettime( CLOCK_MONOTONIC, &lTime );
    return lTime.tv_sec * 1000000000LL + lTime.tv_nsec;
}

static void PrintSince( long long aStart )
{
    printf( "%lld\n", Now() - aStart );
}

static struct sockaddr_in Loopback( uint16_t aPort )
{
    struct sockaddr_in lAddress = { .sin_family = AF_INET, .sin_port = htons( aPort ) };
    lAddress.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
    return lAddress;
}

static int OpenSocket( void )
{
    const int lSocket = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    Require( lSocket >= 0, "socket" );
    return lSocket;
}

static int Connect( uint16_t aPort )
{
    const int lSocket = OpenSocket();
    const struct sockaddr_in lPeer = Loopback( aPort );
    Require( connect( lSocket, (const struct sockaddr*)&lPeer, sizeof( lPeer ) ) == 0, "connect" );
    return lSocket;
}

static uint16_t Get16( const uint8_t* aBytes )
{
    return (uint16_t)( aBytes[0] << 8 | aBytes[1] );
}

static void Put16( uint8_t* aBytes, unsigned int aValue )
{
    aBytes[0] = (uint8_t)( aValue >> 8 );
    aBytes[1] = (uint8_t)aValue;
}

// The responder: registers without meaning, and the least description that a client may ask for.
// Answers READREG and WRITEREG of one register, and READMEM, at once.
static size_t Answer( uint8_t* aRegisters, uint8_t* aPacket )
{
    const unsigned int lCode = Get16( aPacket + 2 );
    const size_t lAddress = Get16( aPacket + HEADER_SIZE + 2 ) & ( REGISTERS_SIZE - 4 );
    size_t lLength = 4;
    if ( lCode == 0x0082 ) // WRITEREG
    {
        memcpy( aRegisters + lAddress, aPacket + HEADER_SIZE + 4, 4 );
        Put16( aPacket + HEADER_SIZE, 0 );
        Put16( aPacket + HEADER_SIZE + 2, 1 );
    }
    else if ( lCode == 0x0084 ) // READMEM
    {
        const size_t lCount = Get16( aPacket + HEADER_SIZE + 6 ) % ( DATAGRAM_SIZE / 2 + 64 );
        memcpy( aPacket + HEADER_SIZE + 4, aRegisters + lAddress, lCount );
        lLength += lCount;
    }
    else // READREG
    {
        memcpy( aPacket + HEADER_SIZE, aRegisters + lAddress, 4 );
    }
    Put16( aPacket, 0 );
    Put16( aPacket + 2, lCode + 1 );
    Put16( aPacket + 4, (unsigned int)lLength );
    return HEADER_SIZE + lLength;
}

static void Serve( void )
{
    static uint8_t sRegisters[REGISTERS_SIZE + DATAGRAM_SIZE];
    static const char DESCRIPTION[] =
        "<?xml version=\"1.0\"?>\n<RegisterDescription ModelName=\"None\" VendorName=\"None\" "
        "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\" SchemaSubMinorVersion=\"0\" "
        "xmlns=\"http://www.genicam.org/GenApi/Version_1_0\"></RegisterDescription>";
    memcpy( sRegisters + DESCRIPTION_ADDRESS, DESCRIPTION, sizeof( DESCRIPTION ) );
    snprintf( (char*)sRegisters + 0x0200, 512, "Local:none.xml;%x;%zx", DESCRIPTION_ADDRESS,
              sizeof( DESCRIPTION ) - 1 );
    memcpy( sRegisters, "\0\2\0\0", 4 );
    memcpy( sRegisters + 0x0934, "\0\0\0\1", 4 );
    const int lSocket = OpenSocket();
    const struct sockaddr_in lLocal = Loopback( GVCP_PORT );
    Require( bind( lSocket, (const struct sockaddr*)&lLocal, sizeof( lLocal ) ) == 0, "bind" );
    for ( ;; )
    {
        uint8_t lPacket[DATAGRAM_SIZE];
        struct sockaddr_in lFrom;
        socklen_t lSize = sizeof( lFrom );
        if ( recvfrom( lSocket, lPacket, sizeof( lPacket ), 0, (struct sockaddr*)&lFrom, &lSize ) >=
             HEADER_SIZE )
        {
            // The identifier lies at the same place in command and acknowledge.
            const size_t lLength = Answer( sRegisters, lPacket );
            (void)sendto( lSocket, lPacket, lLength, 0, (const struct sockaddr*)&lFrom, lSize );
        }
    }
}

static const uint8_t READREG[] = {
    0x42, 0x01,             // key, acknowledge required
    0x00, 0x80,             // READREG
    0x00, 0x04,             // length
    0x00, 0x01,             // request identifier
    0x00, 0x00, 0x09, 0x34, // address
};
static const uint8_t READMEM[] = {
    0x42, 0x01,             // key, acknowledge required
    0x00, 0x84,             // READMEM
    0x00, 0x08,             // length
    0x00, 0x01,             // request identifier
    0x00, 0x00, 0x10, 0x00, // address
    0x00, 0x00, 0x02, 0x00, // reserved, count
};

static void ReadOnce( int aSocket, int aIsMemory, int aIsPolled )
{
    uint8_t lAnswer[DATAGRAM_SIZE];
    struct pollfd lEntry = { aSocket, POLLIN, 0 };
    const size_t lExpected = aIsMemory ? HEADER_SIZE + 4 + MEMORY_SIZE : HEADER_SIZE + 4;
    (void)send( aSocket, aIsMemory ? READMEM : READREG,
                aIsMemory ? sizeof( READMEM ) : sizeof( READREG ), MSG_NOSIGNAL );
    Require( !aIsPolled || poll( &lEntry, 1, 60000 ) == 1, "poll" );
    Require( recv( aSocket, lAnswer, sizeof( lAnswer ), 0 ) == (ssize_t)lExpected, "recv" );
}

static int Read( const char* aWhat, const char* aHow, long aCount )
{
    const int lIsMemory = strcmp( aWhat, "memory" ) == 0;
    const int lIsPolled = strcmp( aHow, "poll" ) == 0;
    const int lSocket = Connect( GVCP_PORT );
    for ( int i = 0; i < WARM_UP; ++i )
    {
        ReadOnce( lSocket, lIsMemory, lIsPolled );
    }
    const long long lStart = Now();
    for ( long i = 0; i < aCount; ++i )
    {
        ReadOnce( lSocket, lIsMemory, lIsPolled );
    }
    PrintSince( lStart );
    return 0;
}

// The same with many sockets in turn.
static int ReadInTurn( long aSockets, long aCount )
{
    const struct rlimit lLimit = { (rlim_t)aSockets + 64, (rlim_t)aSockets + 64 };
    (void)setrlimit( RLIMIT_NOFILE, &lLimit );
    int* const lSockets = calloc( (size_t)aSockets, sizeof( int ) );
    for ( long i = 0; i < aSockets; ++i )
    {
        lSockets[i] = Connect( GVCP_PORT );
        ReadOnce( lSockets[i], 0, 1 );
    }
    const long long lStart = Now();
    for ( long i = 0; i < aCount; ++i )
    {
        ReadOnce( lSockets[i % aSockets], 0, 1 );
    }
    PrintSince( lStart );
    free( lSockets );
    return 0;
}

// Sends a block until it is acknowledged: a server that waits for long gives up and repeats itself.
static void SendBlock( int aSocket, const uint8_t* aBlock, size_t aSize )
{
    uint8_t lAck[BLOCK_HEADER_SIZE];
    ssize_t lCount = 0;
    (void)send( aSocket, aBlock, aSize, 0 );
    while ( ( lCount = recv( aSocket, lAck, sizeof( lAck ), 0 ) ) != BLOCK_HEADER_SIZE ||
            memcmp( lAck + 2, aBlock + 2, 2 ) != 0 )
    {
        Require( lCount == BLOCK_HEADER_SIZE || errno == EAGAIN, "no acknowledge" );
        if ( lCount < 0 )
        {
            (void)send( aSocket, aBlock, aSize, 0 );
        }
    }
}

// Uploads a file: connected to the port that the server's first answer came from, so that no packet
// carries an address across.
static int Upload( const char* aPath, const char* aName )
{
    uint8_t lPacket[DATAGRAM_SIZE] = { 0, 2 };
    const size_t lName = strlen( aName ) + 1;
    struct sockaddr_in lPeer = Loopback( TFTP_PORT );
    socklen_t lSize = sizeof( lPeer );
    const int lSocket = OpenSocket();
    const struct timeval lPatience = { 3, 0 };
    (void)setsockopt( lSocket, SOL_SOCKET, SO_RCVTIMEO, &lPatience, sizeof( lPatience ) );
    static uint8_t sRead[128 * BLOCK_SIZE];
    const int lFile = open( aPath, O_RDONLY | O_CLOEXEC );
    Require( lFile >= 0, aPath );
    memcpy( lPacket + 2, aName, lName );
    memcpy( lPacket + 2 + lName, "octet", sizeof( "octet" ) );
    (void)sendto( lSocket, lPacket, 2 + lName + sizeof( "octet" ), 0, (struct sockaddr*)&lPeer, lSize );
    Require( recvfrom( lSocket, lPacket, sizeof( lPacket ), 0, (struct sockaddr*)&lPeer, &lSize ) ==
                 BLOCK_HEADER_SIZE,
             "no acknowledge" );
    Require( connect( lSocket, (struct sockaddr*)&lPeer, lSize ) == 0, "connect" );
    size_t lLength = BLOCK_SIZE;
    size_t lDone = 0;
    size_t lKept = 0;
    for ( unsigned int lBlock = 1; lLength == BLOCK_SIZE; ++lBlock )
    {
        if ( lDone == lKept )
        {
            const ssize_t lCount = read( lFile, sRead, sizeof( sRead ) );
            lKept = lCount > 0 ? (size_t)lCount : 0;
            lDone = 0;
        }
        lLength = lKept - lDone < BLOCK_SIZE ? lKept - lDone : BLOCK_SIZE;
        memcpy( lPacket + BLOCK_HEADER_SIZE, sRead + lDone, lLength );
        lDone += lLength;
        Put16( lPacket, 3 );
        Put16( lPacket + 2, lBlock );
        SendBlock( lSocket, lPacket, BLOCK_HEADER_SIZE + lLength );
    }
    (void)close( lFile );
    return 0;
}

// Writes S3 records of a number of data bytes each.
static int MakeRecords( const char* aPath, unsigned int aLength, long aCount )
{
    FILE* const lFile = fopen( aPath, "wb" );
    Require( lFile != NULL, aPath );
    uint32_t lState = 1;
    for ( long i = 0; i < aCount; ++i )
    {
        const uint32_t lAddress = (uint32_t)i * aLength;
        unsigned int lSum = aLength + 5;
        fprintf( lFile, "S3%02X%08X", aLength + 5, lAddress );
        for ( unsigned int lShift = 0; lShift < 32; lShift += 8 )
        {
            lSum += lAddress >> lShift & 0xFF;
        }
        for ( unsigned int j = 0; j < aLength; ++j )
        {
            lState = lState * 1664525U + 1013904223U;
            lSum += lState >> 24;
            fprintf( lFile, "%02X", lState >> 24 );
        }
        fprintf( lFile, "%02X\n", ~lSum & 0xFF );
    }
    return fclose( lFile );
}

static uint8_t sDigits[256];

static uint8_t GetByte( const uint8_t* aText )
{
    return (uint8_t)( sDigits[aText[0]] << 4 | sDigits[aText[1]] );
}

// Decodes whole lines of what MakeRecords wrote, by a table of digits. The data go where the records
// say, one behind the other. Returns the end of the data; counts wrong checksums.
static uint8_t* DecodeLines( const uint8_t* aText, const uint8_t* aEnd, uint8_t* aOut, int aIsChecked,
                             unsigned int* aFailures )
{
    for ( const uint8_t* lLine = aText; lLine < aEnd; )
    {
        const unsigned int lBytes = GetByte( lLine + 2 );
        const uint8_t* lDigits = lLine + 12; // behind the address
        const uint8_t* const lSumDigits = lLine + 4 + 2 * ( lBytes - 1 );
        if ( aIsChecked )
        {
            unsigned int lSum = lBytes + GetByte( lSumDigits );
            for ( unsigned int i = 4; i < 12; i += 2 )
            {
                lSum += GetByte( lLine + i );
            }
            for ( ; lDigits < lSumDigits; lDigits += 2 )
            {
                *aOut = GetByte( lDigits );
                lSum += *aOut++;
            }
            *aFailures += ( lSum & 0xFF ) != 0xFF;
        }
        else
        {
            for ( ; lDigits < lSumDigits; lDigits += 2 )
            {
                *aOut++ = GetByte( lDigits );
            }
        }
        lLine = lSumDigits + 3; // behind the checksum and the end of the line
    }
    return aOut;
}

// Decodes a file block by block into memory.
static int Decode( const char* aPath, int aIsChecked )
{
    static uint8_t sText[65536];
    const int lFile = open( aPath, O_RDONLY | O_CLOEXEC );
    struct stat lState;
    Require( lFile >= 0 && fstat( lFile, &lState ) == 0, aPath );
    uint8_t* const lData = malloc( (size_t)lState.st_size / 2 );
    for ( int i = 0; i < 16; ++i )
    {
        sDigits[(uint8_t)"0123456789ABCDEF"[i]] = (uint8_t)i;
    }
    uint8_t* lOut = lData;
    unsigned int lFailures = 0;
    size_t lKept = 0;
    ssize_t lCount = 0;
    while ( ( lCount = read( lFile, sText + lKept, sizeof( sText ) - lKept ) ) > 0 )
    {
        const size_t lSize = lKept + (size_t)lCount;
        const uint8_t* const lLast = memrchr( sText, '\n', lSize );
        const size_t lLines = lLast != NULL ? (size_t)( lLast + 1 - sText ) : 0;
        lOut = DecodeLines( sText, sText + lLines, lOut, aIsChecked, &lFailures );
        lKept = lSize - lLines;
        memmove( sText, sText + lLines, lKept );
    }
    printf( "%td bytes, %u failures\n", lOut - lData, lFailures );
    return lFailures != 0;
}

// Runs a program again and again, and says how long that took.
static int Time( long aCount, char** aArguments )
{
    posix_spawn_file_actions_t lActions;
    posix_spawn_file_actions_init( &lActions );
    posix_spawn_file_actions_addopen( &lActions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0 );
    posix_spawn_file_actions_addopen( &lActions, STDERR_FILENO, "/dev/null", O_WRONLY, 0 );
    const long long lStart = Now();
    for ( long i = 0; i < aCount; ++i )
    {
        pid_t lChild;
        int lStatus;
        Require( posix_spawnp( &lChild, aArguments[0], &lActions, NULL, aArguments, environ ) == 0 &&
                     waitpid( lChild, &lStatus, 0 ) == lChild && lStatus == 0,
                 aArguments[0] );
    }
    PrintSince( lStart );
    return 0;
}

int main( int aCount, char** aArguments )
{
    const char* const lWhat = aCount > 1 ? aArguments[1] : "";
    if ( strcmp( lWhat, "serve" ) == 0 )
    {
        Serve();
    }
    if ( strcmp( lWhat, "read" ) == 0 && aCount == 5 )
    {
        return Read( aArguments[2], aArguments[3], atol( aArguments[4] ) );
    }
    if ( strcmp( lWhat, "sockets" ) == 0 && aCount == 4 )
    {
        return ReadInTurn( atol( aArguments[2] ), atol( aArguments[3] ) );
    }
    if ( strcmp( lWhat, "upload" ) == 0 && aCount == 4 )
    {
        return Upload( aArguments[2], aArguments[3] );
    }
    if ( strcmp( lWhat, "records" ) == 0 && aCount == 5 )
    {
        return MakeRecords( aArguments[2], (unsigned int)atoi( aArguments[3] ), atol( aArguments[4] ) );
    }
    if ( strcmp( lWhat, "decode" ) == 0 && aCount == 4 )
    {
        return Decode( aArguments[2], strcmp( aArguments[3], "check" ) == 0 );
    }
    if ( strcmp( lWhat, "time" ) == 0 && aCount > 3 )
    {
        return Time( atol( aArguments[2] ), aArguments + 3 );
    }
    fprintf( stderr, "usage: CompareLimits serve | read register|memory poll|plain COUNT |\n"
                     "       sockets SOCKETS COUNT | upload FILE NAME | records FILE LENGTH COUNT |\n"
                     "       decode FILE check|plain | time COUNT PROGRAM...\n" );
    return 2;
}
