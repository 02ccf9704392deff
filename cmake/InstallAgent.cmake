# The programs and all that a desktop and a shell want beside them.
# `cmake --install BUILD --component agent` installs them alone.

# Each has packaging/man/NAME.1 and packaging/completions/NAME.{bash,zsh}.
set(kv_programs KVScheduler kvbackup kvctl)

set(KV_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Where completions for zsh are installed; a distribution's packages have a folder of their own")

# /etc where the prefix is /usr; else it goes with the prefix, whichever --install is told.
set(kv_system_settings ${CMAKE_INSTALL_SYSCONFDIR})
if(NOT CMAKE_INSTALL_FULL_SYSCONFDIR STREQUAL "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}")
  set(kv_system_settings ${CMAKE_INSTALL_FULL_SYSCONFDIR})
endif()

set(kv_packaging ${PROJECT_SOURCE_DIR}/packaging)

# kv_install(FOLDER FILE… [RENAME NAME])
function(kv_install folder)
  install(FILES ${ARGN} DESTINATION ${folder} COMPONENT agent)
endfunction()

foreach(program ${kv_programs})
  install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT agent)
  kv_install(${CMAKE_INSTALL_MANDIR}/man1 ${kv_packaging}/man/${program}.1)
  kv_install(${CMAKE_INSTALL_DATADIR}/bash-completion/completions
             ${kv_packaging}/completions/${program}.bash RENAME ${program})
  kv_install(${KV_ZSH_COMPLETIONS} ${kv_packaging}/completions/${program}.zsh RENAME _${program})
endforeach()
kv_install(${CMAKE_INSTALL_MANDIR}/man5 ${kv_packaging}/man/KVScheduler-settings.5)

# The agent looks for ../share/KVScheduler beside its own folder.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/KVScheduler
        COMPONENT agent
        FILES_MATCHING PATTERN Info.plist PATTERN Scripts/*.js PATTERN Images/*.png
        PATTERN icons EXCLUDE)

kv_install(${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
           ${PROJECT_SOURCE_DIR}/resources/icons/kvscheduler.svg)
kv_install(${CMAKE_INSTALL_DATADIR}/applications ${kv_packaging}/com.kelvara.KVScheduler.desktop)
kv_install(${CMAKE_INSTALL_DATADIR}/metainfo ${kv_packaging}/com.kelvara.KVScheduler.metainfo.xml)
kv_install(${kv_system_settings}/xdg/autostart
           ${kv_packaging}/com.kelvara.KVScheduler.autostart.desktop
           RENAME com.kelvara.KVScheduler.desktop)
foreach(page installing scheduling settings kvbackup kvctl host-script dbus security)
  kv_install(${CMAKE_INSTALL_DATADIR}/doc/kvscheduler ${PROJECT_SOURCE_DIR}/docs/${page}.md)
endforeach()

# The unit names the program by its whole path, which is known when the prefix is.
install(CODE "
  set(KV_PROGRAM_FOLDER \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  configure_file(\"${kv_packaging}/kvscheduler.service.in\"
                 \"${CMAKE_BINARY_DIR}/kvscheduler.service\" @ONLY)"
  COMPONENT agent)
kv_install(lib/systemd/user ${CMAKE_BINARY_DIR}/kvscheduler.service)
