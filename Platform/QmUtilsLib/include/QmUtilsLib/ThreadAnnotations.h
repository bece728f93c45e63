/// @file
/// QmUtilsLib: lock annotations, checked by clang's -Wthread-safety, nothing elsewhere.
#pragma once

/// QMUTILSLIB_THREAD_ATTRIBUTE is what the annotations below are made of.
#if defined( __clang__ )
#define QMUTILSLIB_THREAD_ATTRIBUTE( aAttribute ) __attribute__( ( aAttribute ) )
#else
#define QMUTILSLIB_THREAD_ATTRIBUTE( aAttribute )
#endif

/// A class that is a lock, and one that owns a lock while it lives; a member that a lock guards; a
/// function that takes a lock, gives it up, needs it, or handles locks in a way that cannot be
/// followed.
///@{
#define QMUTILSLIB_CAPABILITY( aName ) QMUTILSLIB_THREAD_ATTRIBUTE( capability( aName ) )
#define QMUTILSLIB_SCOPED_CAPABILITY QMUTILSLIB_THREAD_ATTRIBUTE( scoped_lockable )
#define QMUTILSLIB_GUARDED_BY( aMutex ) QMUTILSLIB_THREAD_ATTRIBUTE( guarded_by( aMutex ) )
#define QMUTILSLIB_ACQUIRE( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( acquire_capability( __VA_ARGS__ ) )
#define QMUTILSLIB_RELEASE( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( release_capability( __VA_ARGS__ ) )
#define QMUTILSLIB_REQUIRES( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( requires_capability( __VA_ARGS__ ) )
#define QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS \
    QMUTILSLIB_THREAD_ATTRIBUTE( no_thread_safety_analysis )
///@}
