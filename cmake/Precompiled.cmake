# Headers of the standard library, Boost and GoogleTest, parsed once for all targets of a fast build by clang: where nothing is
# optimised, to parse and instantiate them is a third of its work. g++, which optimises, would win a twentieth, and would have to do
# it for each level of optimisation.

set( standardHeaders algorithm array charconv chrono cmath cstdint cstring deque filesystem fstream functional iostream map memory
   optional random set span sstream stdexcept string string_view system_error unordered_map utility variant vector )
set( boostHeaders boost/asio/io_context.hpp boost/asio/ip/tcp.hpp boost/asio/local/stream_protocol.hpp boost/asio/steady_timer.hpp
   boost/json.hpp )

# The headers belong to a target that is there for their sake only.
function( ratemon_headers target )
   cmake_parse_arguments( PARSE_ARGV 1 arg "" "" "EXTERNAL;HEADERS" )
   list( TRANSFORM arg_HEADERS REPLACE "^.+$" "<\\0>" )
   target_precompile_headers( ${target} PRIVATE ${arg_HEADERS} )
   target_link_libraries( ${target} PRIVATE ${arg_EXTERNAL} )
endfunction()

set( precompiled FALSE )
if( RATEMON_FAST_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" )
   set( precompiled TRUE )
   set( source "${CMAKE_BINARY_DIR}/headers.cpp" )
   file( CONFIGURE OUTPUT "${source}" CONTENT "int main() {}\n" )
   add_library( headers_of_libraries OBJECT "${source}" )
   ratemon_headers( headers_of_libraries HEADERS ${standardHeaders} )
   add_library( headers_with_boost OBJECT "${source}" )
   ratemon_headers( headers_with_boost HEADERS ${standardHeaders} ${boostHeaders} EXTERNAL Boost::headers Boost::json )
   if( NOT RATEMON_TESTS STREQUAL "none" )
      add_executable( headers_of_tests "${source}" )
      ratemon_headers( headers_of_tests HEADERS ${standardHeaders} gmock/gmock.h EXTERNAL GTest::gmock )
   endif()
endif()

# Gives a target what fits it: the compiler takes such a header only for the same kind of code, that of a library or of a program,
# with the same visibility, and where the macros of the same libraries are defined.
function( ratemon_precompiled target )
   get_target_property( type ${target} TYPE )
   get_target_property( links ${target} LINK_LIBRARIES )
   get_target_property( visibility ${target} CXX_VISIBILITY_PRESET )
   if( NOT precompiled OR visibility STREQUAL "hidden" )
      return()
   elseif( NOT type STREQUAL "EXECUTABLE" AND "Boost::json" IN_LIST links )
      set( headers headers_with_boost )
   elseif( NOT type STREQUAL "EXECUTABLE" )
      set( headers headers_of_libraries )
   elseif( "GTest::gmock" IN_LIST links )
      set( headers headers_of_tests )
   else()
      return()
   endif()
   target_precompile_headers( ${target} REUSE_FROM ${headers} )
endfunction()
