# How every target of the tree is compiled and linked, whatever the preset.

set( CMAKE_CXX_STANDARD 20 )
set( CMAKE_CXX_STANDARD_REQUIRED ON )
set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
set( CMAKE_EXPORT_COMPILE_COMMANDS ON )

# The tree may be moved or mounted elsewhere after the build: libraries are found relative to the program.
set( CMAKE_BUILD_RPATH_USE_ORIGIN ON )

# Programs and the plug-in lie side by side at the top of the build, shared libraries below it.
set( CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}" )
set( CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib" )
set( CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib" )

# Where the plug-in and the shared libraries are when they are installed, and the way there from bin and sbin alike. By the
# architecture also outside /usr, so that a tree that is moved as a whole holds together.
if( CMAKE_LIBRARY_ARCHITECTURE )
   set( RATEMON_LIBRARY_DIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}/ratemon" )
else()
   set( RATEMON_LIBRARY_DIR "lib/ratemon" )
endif()

# A plug-in that instantiates a template with static members must share them with the program that loads it.
set( CMAKE_ENABLE_EXPORTS ON )

add_compile_options( -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror )
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
   # g++ 12 sees overlaps in std::string and uninitialised reads in std::variant where there are none, more so under sanitizers.
   add_compile_options( -Wno-restrict -Wno-maybe-uninitialized )
   # It looks for memory to free from the first 128 MB on, and finds next to none: a fifteenth of its time. In KB.
   if( RATEMON_FAST_BUILD )
      add_compile_options( --param=ggc-min-heapsize=1000000 )
   endif()
endif()

# Assertion messages and log lines name files as they stand in the tree, not where it was built.
add_compile_options( "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=" )

if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
   # A library that uses a symbol it does not link fails here, instead of working by luck of what the program links.
   # (clang's sanitizer runtimes live in the program, so the check cannot be used there.)
   add_link_options( "LINKER:-z,defs" )
endif()

# Relocations that only add where a program lies take a bit each, and not 24 bytes that the start reads through. (lld knows them
# by another name, and where it is used nobody looks at the start.)
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
   include( CheckLinkerFlag )
   check_linker_flag( CXX "LINKER:--fatal-warnings,-z,pack-relative-relocs" RATEMON_PACKS_RELOCATIONS )
   if( RATEMON_PACKS_RELOCATIONS )
      add_link_options( "LINKER:-z,pack-relative-relocs" )
   endif()
endif()

if( RATEMON_HARDEN )
   # A position-independent executable needs the linker told as well as the compiler.
   include( CheckPIESupported )
   check_pie_supported( LANGUAGES CXX )
   # Undefined first: some compilers set it by themselves, and to set it to something else is a warning. Not by -Wp, whose
   # order ccache does not keep: it would stay undefined.
   add_compile_options( -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 )
   add_link_options( "LINKER:-z,relro" "LINKER:-z,now" )
endif()

find_program( RATEMON_CCACHE ccache )
mark_as_advanced( RATEMON_CCACHE )
if( RATEMON_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER )
   # Without this sloppiness it takes no unit with a precompiled header from the cache. It matters to __DATE__ and the like only,
   # and to macros defined on the command line, which the compiler holds against the header itself.
   set( CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros "${RATEMON_CCACHE}" )
endif()

if( CMAKE_CXX_COMPILER_ID STREQUAL "Clang" )
   # It would refuse a precompiled header out of the cache for the time of its making; the cache compares contents.
   add_compile_options( "SHELL:-Xclang -fno-pch-timestamp" )
endif()
