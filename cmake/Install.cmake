# What `cmake --install` copies: programs, the module and what they load, descriptions and rooms.
# The build's own programs find everything in the build and need none of it.
set(programs veskd vesk-calibrate vesk-dsp vesk-segment vesk-tree vesk-room)
set(libraries vesk_platform vesk_dldsp vesk_dirac vesk_room_plugin)

set_target_properties(${programs} PROPERTIES
    INSTALL_RPATH "$ORIGIN/${VESK_LIBRARIES_FROM_PROGRAMS}"
)
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${programs} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(TARGETS ${libraries} LIBRARY DESTINATION "${VESK_INSTALL_LIBRARIES}")
install(DIRECTORY devices DESTINATION "${VESK_INSTALL_DATA}" FILES_MATCHING PATTERN "*.json")
install(DIRECTORY examples/rooms DESTINATION "${VESK_INSTALL_DATA}")
install(FILES LICENSE README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" FILES_MATCHING PATTERN "*.md")
install(FILES man/vesk-calibrate.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES completions/vesk-calibrate.bash
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME vesk-calibrate
)
install(FILES completions/_vesk-calibrate
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions"
)
