# The third-party libraries, all from Debian packages (tools/install-packages has the same list). A folder names those it uses
# under EXTERNAL: Boost::headers, Boost::json, Boost::url, CLI11::CLI11, yaml-cpp, SQLite::SQLite3, PkgConfig::mnl,
# PkgConfig::ncursesw, PkgConfig::prometheus, PkgConfig::nats, OpenSSL::Crypto, OpenSSL::SSL.
# platform/ and MaintenancePlugin/ use none.

find_package( PkgConfig REQUIRED )
find_package( Boost 1.81 CONFIG REQUIRED COMPONENTS headers json url )
find_package( CLI11 CONFIG REQUIRED )
find_package( yaml-cpp CONFIG REQUIRED )
find_package( SQLite3 3.37 REQUIRED )  # tables that are STRICT
pkg_check_modules( mnl REQUIRED IMPORTED_TARGET libmnl )
pkg_check_modules( prometheus REQUIRED IMPORTED_TARGET prometheus-cpp-core )  # the registry and the text of it, no server
pkg_check_modules( ncursesw REQUIRED IMPORTED_TARGET ncursesw )
# It asks for an interface of the system that every C++ compiler here asks for already, and more: headers that were parsed without it
# could not be used.
set_target_properties( PkgConfig::ncursesw PROPERTIES INTERFACE_COMPILE_OPTIONS "" )
pkg_check_modules( nats REQUIRED IMPORTED_TARGET libnats>=3.4 )
find_package( OpenSSL 3.0 REQUIRED )

if( RATEMON_TESTS AND NOT RATEMON_FUZZ )
   find_package( GTest CONFIG REQUIRED )
   find_package( Python3 REQUIRED COMPONENTS Interpreter )
endif()
if( RATEMON_BENCH AND NOT RATEMON_FUZZ )
   find_package( benchmark CONFIG REQUIRED )
endif()
