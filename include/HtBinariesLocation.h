/// @file
/// HtBase: where the library is installed.
#pragma once

#include <HtExport.h>
#include <HtResult.h>
#include <HtString.h>

/// HtBinariesLocation gives the directory of the library's own module file, in which an application
/// finds the files installed beside it. It is the program's directory only where the library is
/// linked into the program.
///
/// On OK aLocation is the absolute path of the directory that the library was loaded from, with
/// symbolic links resolved and without a separator at its end; the root directory is "/". A later
/// change of the working directory does not matter. 0x0019: the system does not give the whole
/// path. GENERIC_ERROR with ENOMEM as OS code: memory is missing. It logs nothing. Safe from any
/// thread.
HTBASE_API HtResult HtBinariesLocation( HtString& aLocation );
