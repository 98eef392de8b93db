#pragma once

/// @file
/// The mark of the binary interface.

/// Marks a name as part of the library's binary interface. Everything else is built with hidden visibility (the
/// compilers' attribute `visibility`, see "Common Function Attributes" in GCC's manual), so no other program can bind
/// to it. A class that is thrown or derived from across the library's border needs the mark too.
#define TAV_EXPORT __attribute__((visibility("default")))
