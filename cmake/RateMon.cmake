# The vocabulary of the per-folder CMakeLists.txt. A folder is one target, and a target can include only
#   - the headers of its own folder, and
#   - "<folder>/<Header>.h" of the folders it links, directly or through them.
# Each library therefore has an include root of its own below ${build}/include, which holds one link, named as the folder. Nobody
# is ever given the repository root, platform/, service/ or host/ as an include directory: a wrong include fails to build.

# For one process with its share of a folder's cases, under sanitizers, on a machine that has other things to do as well.
set( ratemonTestTimeoutSeconds 400 )

include( Precompiled )

# ratemon_add_if_present( DIR... ): adds those folders that have a CMakeLists.txt.
function( ratemon_add_if_present )
   foreach( dir IN LISTS ARGN )
      if( EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt" )
         add_subdirectory( "${dir}" )
      endif()
   endforeach()
endfunction()

# ratemon_add_subfolders(): adds every folder below this one that has a CMakeLists.txt.
function( ratemon_add_subfolders )
   file( GLOB lists CONFIGURE_DEPENDS RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}/*/CMakeLists.txt" )
   foreach( list IN LISTS lists )
      get_filename_component( dir "${list}" DIRECTORY )
      add_subdirectory( "${dir}" )
   endforeach()
endfunction()

# ratemon_folders( VARIABLE TOP ): the libraries below platform/, service/ or host/ that were added so far.
function( ratemon_folders variable top )
   get_property( folders GLOBAL PROPERTY RATEMON_FOLDERS_${top} )
   set( ${variable} ${folders} PARENT_SCOPE )
endfunction()

# Links by alias name: a folder that does not exist is an error at configuration, never a silent "-lname".
function( ratemon_link target scope )
   cmake_parse_arguments( PARSE_ARGV 2 arg "" "" "LINKS;EXTERNAL" )
   list( TRANSFORM arg_LINKS PREPEND "RateMon::" )
   target_link_libraries( ${target} ${scope} ${arg_LINKS} ${arg_EXTERNAL} )
endfunction()

function( ratemon_include_root target scope )
   get_filename_component( folder "${CMAKE_CURRENT_SOURCE_DIR}" NAME )
   file( RELATIVE_PATH folderInTree "${CMAKE_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}" )
   set( root "${CMAKE_BINARY_DIR}/include/${target}" )
   file( MAKE_DIRECTORY "${root}" )
   file( CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}" "${root}/${folder}" SYMBOLIC )
   target_include_directories( ${target} ${scope} "${root}" )
   target_compile_options( ${target} ${scope} "-fmacro-prefix-map=${root}/${folder}=${folderInTree}" )
endfunction()

# What makes a build of everything fast, in the presets that say RATEMON_FAST_BUILD. In the others each source is compiled by itself,
# so that one which forgets an include is still found.
#
# All sources of a folder are compiled as one: most of the work is in the headers and templates that they have in common. Names are
# unique in a folder, also those without linkage.
#
# Headers of others are parsed once for all (Precompiled.cmake).
function( ratemon_fast_build target )
   if( NOT RATEMON_FAST_BUILD )
      return()
   endif()
   set_target_properties( ${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0 )
   if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
      # It takes sources that are compiled together for headers, in which a name without linkage is a mistake.
      target_compile_options( ${target} PRIVATE -Wno-subobject-linkage )
   endif()
   ratemon_precompiled( ${target} )
endfunction()

# Where memory is laid out by hand, the sanitizers also look for misaligned and null pointers: to do that everywhere makes a third of
# all code, and takes as much of the time to compile it. A null pointer that is used stops a program anyway.
function( ratemon_raw_memory target )
   target_compile_options( ${target} PRIVATE $<$<CONFIG:Asan>:-fsanitize=null,alignment> )
endfunction()

# ratemon_library( [NAME n] [SHARED|STATIC] [SELDOM] [RAW] [LINKS folder...] [EXTERNAL target...] )
# The folder as a library, named as the folder unless NAME says otherwise. A folder of headers only becomes an interface library.
# Platform folders are SHARED, so that a program and the plug-in it loads have one copy of every global.
# SELDOM: its code runs at the start or when somebody asks, and is to be small rather than fast.
# RAW: it lays out memory by hand (see above).
function( ratemon_library )
   cmake_parse_arguments( PARSE_ARGV 0 arg "SHARED;STATIC;SELDOM;RAW" "NAME" "LINKS;EXTERNAL" )
   if( NOT arg_NAME )
      get_filename_component( arg_NAME "${CMAKE_CURRENT_SOURCE_DIR}" NAME )
   endif()
   file( GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp" )
   file( GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.h" )
   if( NOT sources )
      add_library( ${arg_NAME} INTERFACE )
      set( scope INTERFACE )
   else()
      if( arg_STATIC )
         add_library( ${arg_NAME} STATIC ${sources} ${headers} )
         # A function that a program does not call is not to stay in it for the sake of its neighbours.
         target_compile_options( ${arg_NAME} PRIVATE $<$<CONFIG:Release>:-ffunction-sections> )
      else()
         add_library( ${arg_NAME} SHARED ${sources} ${headers} )
         set_target_properties( ${arg_NAME} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ${RATEMON_LTO} )
      endif()
      set_target_properties( ${arg_NAME} PROPERTIES OUTPUT_NAME "ratemon-${arg_NAME}" )
      if( arg_SELDOM )
         target_compile_options( ${arg_NAME} PRIVATE $<$<CONFIG:Release>:-Os> )
      endif()
      if( arg_RAW )
         ratemon_raw_memory( ${arg_NAME} )
      endif()
      set( scope PUBLIC )
   endif()
   add_library( RateMon::${arg_NAME} ALIAS ${arg_NAME} )
   file( RELATIVE_PATH folderInTree "${CMAKE_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}" )
   string( REGEX REPLACE "/.*" "" top "${folderInTree}" )
   set_property( GLOBAL APPEND PROPERTY RATEMON_FOLDERS_${top} ${arg_NAME} )
   ratemon_include_root( ${arg_NAME} ${scope} )
   ratemon_link( ${arg_NAME} ${scope} LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} )
   if( sources )
      ratemon_fast_build( ${arg_NAME} )
   endif()
endfunction()

# ratemon_plugin( NAME [LINKS folder...] )
# The folder as NAME.so, to be loaded at run time and never linked. It lies at the top of the build.
function( ratemon_plugin name )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "" "LINKS" )
   file( GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp" )
   file( GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.h" )
   if( NOT sources )
      return()
   endif()
   add_library( ${name} MODULE ${sources} ${headers} )
   # Nothing in it is looked up by name: it registers itself. So the optimiser may see through all of it.
   set_target_properties( ${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}"
      INTERPROCEDURAL_OPTIMIZATION ${RATEMON_LTO} CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON )
   ratemon_link( ${name} PRIVATE LINKS ${arg_LINKS} )
   ratemon_fast_build( ${name} )
endfunction()

# ratemon_program( NAME [LINKS folder...] [EXTERNAL target...] )
# The sources that stand directly in the folder as an executable at the top of the build.
function( ratemon_program name )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "" "LINKS;EXTERNAL" )
   file( GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp" )
   file( GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.h" )
   if( NOT sources )
      return()
   endif()
   add_executable( ${name} ${sources} ${headers} )
   # What a plug-in shares with the program that loads it is of the platform.
   set( exports "${CMAKE_SOURCE_DIR}/cmake/exports-of-programs.map" )
   target_link_options( ${name} PRIVATE "LINKER:--version-script=${exports}" $<$<CONFIG:Release>:LINKER:--gc-sections> )
   # What it does itself is to start.
   target_compile_options( ${name} PRIVATE "$<$<CONFIG:Release>:-Os;-ffunction-sections>" )
   set_target_properties( ${name} PROPERTIES LINK_DEPENDS "${exports}" )
   # For --version.
   target_compile_definitions( ${name} PRIVATE "RATEMON_VERSION=\"${PROJECT_VERSION}\"" )
   ratemon_link( ${name} PRIVATE LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} )
   ratemon_fast_build( ${name} )
endfunction()

# Tells a test where programs and plug-ins of this build are: maintd as RATEMON_MAINTD_PATH, RateMonPlugin as
# RATEMON_PLUGIN_PATH, and has them built before it.
function( ratemon_tell_paths target )
   foreach( program IN LISTS ARGN )
      if( TARGET ${program} )
         string( REGEX REPLACE "^RateMon" "" short "${program}" )
         string( TOUPPER "${short}" short )
         target_compile_definitions( ${target} PRIVATE "RATEMON_${short}_PATH=\"$<TARGET_FILE:${program}>\"" )
         add_dependencies( ${target} ${program} )
      endif()
   endforeach()
endfunction()

# One test program, of which ctest runs as many processes as SHARDS says, each with its share of the cases.
function( ratemon_test_program name )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "SHARDS;COST" "SOURCES;LINKS;EXTERNAL;PROGRAMS" )
   add_executable( ${name} ${arg_SOURCES} )
   set_target_properties( ${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests" )
   # What is tested is optimised, the telling of the test need not be: compiling it was half of a release build.
   target_compile_options( ${name} PRIVATE $<$<CONFIG:Release>:-O0> )
   # Programs that are watched over need more memory: tests that bound it ask for this.
   target_compile_definitions( ${name} PRIVATE $<$<CONFIG:Asan>:RATEMON_SANITIZED> )
   target_compile_definitions( ${name} PRIVATE "RATEMON_SOURCE_DIR=\"${CMAKE_SOURCE_DIR}\"" )
   ratemon_link( ${name} PRIVATE LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} GTest::gmock GTest::gtest_main )
   ratemon_tell_paths( ${name} ${arg_PROGRAMS} )
   ratemon_fast_build( ${name} )
   foreach( shard RANGE 1 ${arg_SHARDS} )
      math( EXPR index "${shard} - 1" )
      add_test( NAME ${name}/${shard} COMMAND ${name} )
      set_tests_properties( ${name}/${shard} PROPERTIES TIMEOUT ${ratemonTestTimeoutSeconds}
         ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_SHARDS};GTEST_SHARD_INDEX=${index}" )
      if( arg_COST )
         set_tests_properties( ${name}/${shard} PROPERTIES COST ${arg_COST} )
      endif()
   endforeach()
endfunction()

# ratemon_tests( DIR [SHARDS n] [COST seconds] [ALONE name...] [LINKS folder...] [EXTERNAL target...] [PROGRAMS target...] )
# The sources in DIR are one test program, DIR_test. SHARDS processes of it, two unless said otherwise, share its cases.
# COST is about what one of them takes where nothing was run before: ctest starts the longest first, so that none is left to run by
# itself at the end.
# <name>_test.cpp of ALONE changes what its whole process does, and is a program of its own with those sources of DIR that are no
# tests. A test reads files of the tree below RATEMON_SOURCE_DIR and reaches PROGRAMS by their paths (see above).
function( ratemon_tests dir )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "SHARDS;COST" "ALONE;LINKS;EXTERNAL;PROGRAMS" )
   if( NOT arg_SHARDS )
      set( arg_SHARDS 2 )
   endif()
   set( here "${CMAKE_CURRENT_SOURCE_DIR}/${dir}" )
   file( GLOB sources CONFIGURE_DEPENDS "${here}/*.cpp" )
   set( shared ${sources} )
   list( FILTER shared EXCLUDE REGEX "_test\\.cpp$" )
   set( same LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} PROGRAMS ${arg_PROGRAMS} )
   foreach( name IN LISTS arg_ALONE )
      list( REMOVE_ITEM sources "${here}/${name}_test.cpp" )
      ratemon_test_program( ${dir}_${name}_test SHARDS 1 SOURCES "${here}/${name}_test.cpp" ${shared} ${same} )
   endforeach()
   if( sources )
      ratemon_test_program( ${dir}_test SHARDS ${arg_SHARDS} COST "${arg_COST}" SOURCES ${sources} ${same} )
   endif()
endfunction()

# ratemon_benches( [LINKS folder...] [EXTERNAL target...] ): every *_bench.cpp of the folder is one benchmark program. In a fast build
# of everything they are left out, for whoever measures names them; that of clang, which is the faster, holds their sources against
# the compiler, together and without making code of them.
function( ratemon_benches )
   cmake_parse_arguments( PARSE_ARGV 0 arg "" "" "LINKS;EXTERNAL" )
   file( GLOB benches CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*_bench.cpp" )
   foreach( bench IN LISTS benches )
      get_filename_component( target "${bench}" NAME_WE )
      add_executable( ${target} "${bench}" )
      set_target_properties( ${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bench" )
      ratemon_link( ${target} PRIVATE LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} benchmark::benchmark benchmark::benchmark_main )
      if( RATEMON_FAST_BUILD )
         set_target_properties( ${target} PROPERTIES EXCLUDE_FROM_ALL ON )
      endif()
   endforeach()
   if( RATEMON_FAST_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" )
      add_library( bench_sources OBJECT ${benches} )
      ratemon_link( bench_sources PRIVATE LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} benchmark::benchmark )
      target_compile_options( bench_sources PRIVATE -emit-ast )
      ratemon_fast_build( bench_sources )
   endif()
endfunction()

# ratemon_fuzzer( NAME [SOURCES source...] [LINKS folder...] [EXTERNAL target...] ): NAME_fuzz.cpp as a libFuzzer program.
function( ratemon_fuzzer name )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "" "SOURCES;LINKS;EXTERNAL" )
   set( target "${name}_fuzz" )
   add_executable( ${target} ${target}.cpp ${arg_SOURCES} )
   set_target_properties( ${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz" )
   target_link_options( ${target} PRIVATE -fsanitize=fuzzer )
   ratemon_link( ${target} PRIVATE LINKS ${arg_LINKS} EXTERNAL ${arg_EXTERNAL} )
endfunction()
