/// @file
/// QmUtilsLib: assertions of programming errors.
#pragma once

#include <QmUtilsLib/Export.h>

namespace QmUtilsLib
{

/// AssertionHandler is called when an assertion of a debug build fails. aExpression is the text of
/// the assertion as in the source, aFile the source file, aLine its line. The texts are valid until
/// the process ends. The handler may end the process or return. When it returns, the code goes on
/// as in a release build.
using AssertionHandler = void ( * )( const char* aExpression, const char* aFile, int aLine );

/// SetAssertionHandler replaces the process-wide handler and returns the old one. Null sets the
/// default, which prints the assertion to standard error and aborts. Safe from any thread.
QMUTILSLIB_API AssertionHandler SetAssertionHandler( AssertionHandler aHandler );

/// AssertionFailed calls the handler. Use the macros below instead.
QMUTILSLIB_API void AssertionFailed( const char* aExpression, const char* aFile, int aLine );

} // namespace QmUtilsLib

#if defined( NDEBUG )
#define QMUTILSLIB_ASSERT_TEXT( aCondition, aText ) static_cast<void>( 0 )
#define QMUTILSLIB_ASSERT( aCondition ) static_cast<void>( 0 )
#else
/// QMUTILSLIB_ASSERT_TEXT calls AssertionFailed with aText when aCondition is false. A release
/// build (NDEBUG) does not evaluate the condition.
#define QMUTILSLIB_ASSERT_TEXT( aCondition, aText ) \
    ( ( aCondition ) ? static_cast<void>( 0 )       \
                     : ::QmUtilsLib::AssertionFailed( aText, __FILE__, __LINE__ ) )

/// QMUTILSLIB_ASSERT does the same with the condition's own text.
#define QMUTILSLIB_ASSERT( aCondition ) QMUTILSLIB_ASSERT_TEXT( aCondition, #aCondition )
#endif
