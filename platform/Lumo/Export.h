#pragma once

/// `VELO_PLATFORM_EXPORT` marks what libvelo_platform.so shows to others.
///
/// Everything is built with hidden visibility. To be marked: functions and data defined in a source
/// file that others call, and every class whose type information crosses the library's border, i.e.
/// whatever is thrown, caught, `dynamic_cast` or derived from on the other side (on the class
/// itself, so that its virtual table and type information are shared). Templates and inline
/// functions need no mark.
#define VELO_PLATFORM_EXPORT __attribute__( ( visibility( "default" ) ) )
