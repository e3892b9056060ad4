# What is installed, and the Debian package made of it (tools/make-package). Included last, when every target is there.
#
#    bin, sbin                      the programs
#    lib/ARCHITECTURE/ratemon       the plug-in and the shared libraries, which nobody else links
#    lib/ratemon/hooks              programs for stage lists
#    lib/systemd, sysusers.d, ...   what a system needs to run maintd as a service
#    share                          pages, documents, samples, completion
#    /etc/ratemon                   the configuration; below the prefix where that is not /usr
#
# All of it is found relative to the program, so that a tree that is moved as a whole still works; only the service's
# files name absolute paths, those of the prefix.

# --- Programs and libraries

set( ratemonPrograms maintd maintctl maintsim maintfleet )
set( ratemonLibraries )
foreach( top platform report service host cli sim fleet )
   ratemon_folders( folders ${top} )
   foreach( folder IN LISTS folders )
      get_target_property( type ${folder} TYPE )
      if( type STREQUAL "SHARED_LIBRARY" )
         list( APPEND ratemonLibraries ${folder} )
      endif()
   endforeach()
endforeach()
set_target_properties( ${ratemonPrograms} PROPERTIES INSTALL_RPATH "$ORIGIN/../${RATEMON_LIBRARY_DIR}" )
set_target_properties( RateMonPlugin ${ratemonLibraries} PROPERTIES INSTALL_RPATH "$ORIGIN" )
install( TARGETS maintctl maintsim maintfleet RUNTIME DESTINATION bin )
install( TARGETS maintd RUNTIME DESTINATION sbin )
# No NAMELINK would be made, as they have no version: a program and its libraries come and go together.
install( TARGETS RateMonPlugin ${ratemonLibraries} LIBRARY DESTINATION "${RATEMON_LIBRARY_DIR}" )
install( PROGRAMS packaging/hooks/frr-graceful-shutdown packaging/hooks/frr-isis-overload packaging/hooks/frr-ospf-max-metric
   DESTINATION lib/ratemon/hooks )
install( FILES packaging/hooks/frr.bash DESTINATION lib/ratemon/hooks )

# --- Pages and documents

# Compressed as distributions have them, without name and time, so that two builds give the same bytes.
function( ratemon_compressed source name variable )
   set( plain "${CMAKE_BINARY_DIR}/packaging/${name}" )
   configure_file( "${source}" "${plain}" @ONLY )
   execute_process( COMMAND gzip -9nkf "${plain}" COMMAND_ERROR_IS_FATAL ANY )
   set( ${variable} "${plain}.gz" PARENT_SCOPE )
endfunction()

foreach( page maintctl.1 maintsim.1 maintd.conf.5 maintd.8 maintfleet.8 )
   ratemon_compressed( "packaging/man/${page}.in" "${page}" compressed )
   string( REGEX MATCH ".$" section "${page}" )
   install( FILES "${compressed}" DESTINATION "share/man/man${section}" )
endforeach()
ratemon_compressed( packaging/debian/changelog.in changelog.Debian changelog )
install( FILES packaging/debian/copyright "${changelog}" README.md DESTINATION share/doc/ratemon )
install( DIRECTORY docs/ DESTINATION share/doc/ratemon/docs FILES_MATCHING PATTERN "*.md" PATTERN "*.json" PATTERN "*.yaml"
   PATTERN "*.png" PATTERN "*.svg" )
install( DIRECTORY examples/ DESTINATION share/doc/ratemon/examples PATTERN "*.expected" EXCLUDE )
install( FILES packaging/completion/maintctl.bash DESTINATION share/bash-completion/completions RENAME maintctl )
install( FILES packaging/completion/maintfleet.bash DESTINATION share/bash-completion/completions RENAME maintfleet )
install( FILES packaging/completion/_maintctl packaging/completion/_maintfleet DESTINATION share/zsh/vendor-completions )

# --- The services

install( FILES packaging/systemd/ratemon.sysusers DESTINATION lib/sysusers.d RENAME ratemon.conf )
install( FILES packaging/systemd/ratemon.tmpfiles DESTINATION lib/tmpfiles.d RENAME ratemon.conf )
# The prefix may be another at each installation.
install( CODE "
   set( prefix \"\${CMAKE_INSTALL_PREFIX}\" )
   set( etc \"\${prefix}/etc\" )
   if( prefix STREQUAL \"/usr\" )
      set( etc /etc )
   endif()
   foreach( service maintd maintfleet-agent maintfleet-controller )
      set( made \"${CMAKE_BINARY_DIR}/packaging/\${service}.service\" )
      configure_file( \"${CMAKE_SOURCE_DIR}/packaging/systemd/\${service}.service.in\" \"\${made}\" @ONLY )
      file( INSTALL \"\${made}\" DESTINATION \"\${prefix}/lib/systemd/system\" )
   endforeach()
   foreach( file maintd.yaml maintfleet-agent.conf maintfleet-controller.conf )
      file( INSTALL \"${CMAKE_SOURCE_DIR}/packaging/\${file}\" DESTINATION \"\${etc}/ratemon\" )
   endforeach()
" )

# --- The package

# Whoever makes a package names the targets that it needs, and not the tests (tools/make-package).
set( CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON )
set( CPACK_GENERATOR DEB )
# The configuration is outside the prefix.
set( CPACK_SET_DESTDIR ON )
set( CPACK_INSTALL_PREFIX /usr )
set( CPACK_STRIP_FILES ON )
set( CPACK_PACKAGE_NAME ratemon )
set( CPACK_PACKAGE_CONTACT "RateMon developers <ratemon@ratemon.example>" )
set( CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/package" )
set( CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
   WORLD_EXECUTE )
set( CPACK_DEBIAN_FILE_NAME DEB-DEFAULT )
set( CPACK_DEBIAN_PACKAGE_RELEASE 1 )
set( CPACK_DEBIAN_PACKAGE_SECTION net )
set( CPACK_DEBIAN_PACKAGE_PRIORITY optional )
file( READ packaging/debian/description CPACK_DEBIAN_PACKAGE_DESCRIPTION )
string( STRIP "${CPACK_DEBIAN_PACKAGE_DESCRIPTION}" CPACK_DEBIAN_PACKAGE_DESCRIPTION )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_BINARY_DIR}/lib" )
set( CPACK_DEBIAN_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers" )
set( CPACK_DEBIAN_PACKAGE_RECOMMENDS "systemd" )
set( CPACK_DEBIAN_PACKAGE_SUGGESTS "frr, bash-completion, nats-server" )
set( CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON )
set( CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${CMAKE_SOURCE_DIR}/packaging/debian/conffiles" )
foreach( script postinst prerm postrm )
   list( APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${CMAKE_SOURCE_DIR}/packaging/debian/${script}" )
endforeach()
include( CPack )
