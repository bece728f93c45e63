/// @file
/// QmUtilsLib: lock annotations, checked by clang's `-Wthread-safety` and empty elsewhere.
#pragma once

/// QMUTILSLIB_THREAD_ATTRIBUTE is the attribute for clang and empty for other compilers.
#if defined( __clang__ )
#define QMUTILSLIB_THREAD_ATTRIBUTE( aAttribute ) __attribute__( ( aAttribute ) )
#else
#define QMUTILSLIB_THREAD_ATTRIBUTE( aAttribute )
#endif

/// The class is a lock.
#define QMUTILSLIB_CAPABILITY( aName ) QMUTILSLIB_THREAD_ATTRIBUTE( capability( aName ) )

/// An object of the class owns a lock while it lives.
#define QMUTILSLIB_SCOPED_CAPABILITY QMUTILSLIB_THREAD_ATTRIBUTE( scoped_lockable )

/// A lock guards the member.
#define QMUTILSLIB_GUARDED_BY( aMutex ) QMUTILSLIB_THREAD_ATTRIBUTE( guarded_by( aMutex ) )

/// The function takes a lock.
#define QMUTILSLIB_ACQUIRE( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( acquire_capability( __VA_ARGS__ ) )

/// The function releases a lock.
#define QMUTILSLIB_RELEASE( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( release_capability( __VA_ARGS__ ) )

/// The caller of the function must hold a lock.
#define QMUTILSLIB_REQUIRES( ... ) QMUTILSLIB_THREAD_ATTRIBUTE( requires_capability( __VA_ARGS__ ) )

/// The function is not checked.
#define QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS \
    QMUTILSLIB_THREAD_ATTRIBUTE( no_thread_safety_analysis )
