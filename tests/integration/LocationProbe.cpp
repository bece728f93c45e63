// A program that loads libraries and modules as its arguments say, in order:
//   load PATH           loads it, as the name is written
//   load-unlinked PATH  loads a file that has no name any more
//   unload              unloads the one that was loaded last
//   chdir PATH          changes the working directory
//   unlink PATH         removes a file or a link
//   chroot PATH         makes that the root directory; exits with 77 where this is not allowed
//   ask                 has the module that was loaded last print the library's location
// Exits with 0 when all of it was possible.

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr int NOT_ALLOWED = 77;

std::vector<void*> gLoaded;

bool Load( const std::string& aPath )
{
    gLoaded.push_back( dlopen( aPath.c_str(), RTLD_NOW | RTLD_GLOBAL ) );
    return gLoaded.back() != nullptr;
}

bool LoadUnlinked( const std::string& aPath )
{
    const int lFile = open( aPath.c_str(), O_RDONLY | O_CLOEXEC );
    return lFile >= 0 && unlink( aPath.c_str() ) == 0 &&
           Load( "/proc/self/fd/" + std::to_string( lFile ) );
}

bool Unload()
{
    void* const lLast = gLoaded.back();
    gLoaded.pop_back();
    return dlclose( lLast ) == 0;
}

// An ordinary user may do it in a user namespace of his own, where there are any.
bool ChangeRoot( const std::string& aPath )
{
    if ( chroot( aPath.c_str() ) != 0 &&
         ( unshare( CLONE_NEWUSER ) != 0 || chroot( aPath.c_str() ) != 0 ) )
    {
        _exit( NOT_ALLOWED );
    }
    return chdir( "/" ) == 0;
}

bool Ask()
{
    const auto lPrint = reinterpret_cast<void ( * )()>( dlsym( gLoaded.back(), "PrintLocation" ) );
    if ( lPrint == nullptr )
    {
        return false;
    }
    lPrint();
    return true;
}

struct Action
{
    const char* mName;
    bool ( *mRun )( const std::string& aPath ); // null: without a path
    bool ( *mRunPlainly )();
};

constexpr Action ACTIONS[] = {
    { "load", Load, nullptr },
    { "load-unlinked", LoadUnlinked, nullptr },
    { "unload", nullptr, Unload },
    { "chdir", []( const std::string& aPath ) { return chdir( aPath.c_str() ) == 0; }, nullptr },
    { "unlink", []( const std::string& aPath ) { return unlink( aPath.c_str() ) == 0; }, nullptr },
    { "chroot", ChangeRoot, nullptr },
    { "ask", nullptr, Ask },
};

} // namespace

int main( int aCount, char** aArguments )
{
    for ( int lIndex = 1; lIndex < aCount; ++lIndex )
    {
        const std::string lName = aArguments[lIndex];
        bool lIsDone = false;
        for ( const Action& lAction : ACTIONS )
        {
            if ( lName == lAction.mName )
            {
                lIsDone = lAction.mRun != nullptr
                              ? lIndex + 1 < aCount && lAction.mRun( aArguments[++lIndex] )
                              : lAction.mRunPlainly();
                break;
            }
        }
        if ( !lIsDone )
        {
            const char* const lError = dlerror();
            std::fprintf( stderr, "%s: %s\n", lName.c_str(), lError != nullptr ? lError : "" );
            return 1;
        }
    }
    return 0;
}
