# The Debian packages that cpack makes, faxtray-COMPONENT of each component; scripts/package.sh calls it.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/finish_trees.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE faxtrayd)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "faxtrayd maintainers <maintainers@faxtrayd.example>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# debian_package(COMPONENT SUMMARY summary DESCRIPTION text [SECTION name] [DEPENDS list] [RECOMMENDS list] [SUGGESTS list]
#                [UNITS unit...] [OTHER_UNITS unit...] [KEPT directory...] [LOGS directory...] [LINKS link...])
#
# UNITS are enabled and started when the package is installed; OTHER_UNITS are only restarted if they run. Purging the
# package removes LOGS and LINKS (patterns, too) and leaves KEPT, which it names. A package without UNITS has no maintainer scripts.
function(debian_package component)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SUMMARY;DESCRIPTION;SECTION;DEPENDS;RECOMMENDS;SUGGESTS"
                        "UNITS;OTHER_UNITS;KEPT;LOGS;LINKS")
  set(package faxtray-${component})
  string(TOUPPER ${component} COMPONENT)
  set(prefix CPACK_DEBIAN_${COMPONENT}_PACKAGE)
  set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${arg_SUMMARY}\n${arg_DESCRIPTION}" PARENT_SCOPE)
  set(${prefix}_NAME ${package} PARENT_SCOPE)
  foreach(field SECTION DEPENDS RECOMMENDS SUGGESTS)
    set(${prefix}_${field} "${arg_${field}}" PARENT_SCOPE)
  endforeach()
  foreach(list UNITS OTHER_UNITS KEPT LOGS LINKS)
    string(TOLOWER ${list} name)
    list(JOIN arg_${list} " " ${name})
  endforeach()

  if(units)
    foreach(script postinst prerm postrm)
      configure_file(debian/${script}.in ${CMAKE_CURRENT_BINARY_DIR}/debian/${package}/${script} @ONLY FILE_PERMISSIONS
                     OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
      list(APPEND control ${CMAKE_CURRENT_BINARY_DIR}/debian/${package}/${script})
    endforeach()
  endif()
  set(${prefix}_CONTROL_EXTRA "${control}" PARENT_SCOPE)

  install(FILES debian/copyright debian/changelog DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component})
endfunction()

debian_package(server
  SUMMARY "Inbox server of a Unix fax server"
  DESCRIPTION "faxtrayd serves the received faxes of a fax server to its users, over ONC RPC:
from users' inboxes, and from the incoming directories of the fax lines, whose
faxes forwarders deliver to people by inbox, mail or command. Documents of any
fax receiver become faxes by faxtray-import."
  SECTION comm
  DEPENDS "rpcbind, systemd | systemd-standalone-sysusers, systemd | systemd-standalone-tmpfiles"
  RECOMMENDS "default-mta | mail-transport-agent, faxtray-client, ghostscript, logrotate"
  UNITS faxregd.service faxtrayd.service
  OTHER_UNITS "'faxtray-import@*.service'" faxtray-expire.timer
  KEPT ${state}
  LOGS ${log}
  LINKS ${lists}/utils "/etc/systemd/system/*.target.wants/faxtray-import@*.service"
        /etc/systemd/system/timers.target.wants/faxtray-expire.timer)

debian_package(client
  SUMMARY "Client of the inbox server of a Unix fax server"
  DESCRIPTION "faxtray lists, shows, fetches and removes the faxes of an inbox that
faxtrayd serves, as TIFF, PDF, PNG or fax files, and delivers them to others.
faxconv re-codes fax files, and shows what is in them."
  SECTION comm)

debian_package(web
  SUMMARY "Inboxes of a Unix fax server in a browser"
  DESCRIPTION "faxtray-web shows the faxes that faxtrayd serves to users and forwarders in
their browsers, on this host or behind a web server with TLS. It is a client of
faxtrayd like any other, and stores nothing."
  SECTION comm
  RECOMMENDS "faxtray-server, nginx | httpd"
  UNITS faxtray-web.service)

set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Inbox server of a Unix fax server")
include(CPack)
