/// @file
/// HtBase: where the library is installed.
#pragma once

#include <HtExport.h>
#include <HtResult.h>
#include <HtString.h>

/// HtBinariesLocation tells the directory that the library's own module file lies in, so that files
/// shipped beside it are found without configuration. It is not the program's directory, unless the
/// library was linked into the program.
///
/// On OK aLocation is the directory: absolute, with symbolic links resolved, and without a
/// separator at its end (but for the root directory, "/"). It is the one that the library was
/// loaded from, also after a change of the working directory. 0x0019 when the system does not tell,
/// or not the whole path; GENERIC_ERROR with ENOMEM as OS code when memory is missing. aLocation is
/// then unchanged. Logs nothing. May be called at any time from any thread.
HTBASE_API HtResult HtBinariesLocation( HtString& aLocation );
