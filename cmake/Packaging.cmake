# Debian packages through CPack: zelvanor (the desktop client and the CLI),
# zelvanor-receiver (the panel, its kiosk session and service),
# zelvanor-passcode (the passcode service with its own user) and
# zelvanor-common (the casting library all of them load).
# scripts/build-packages.sh configures with CMAKE_INSTALL_PREFIX=/usr and runs cpack.

set(ZV_PACKAGING_DIR ${CMAKE_SOURCE_DIR}/packaging)

# The panel's files outside the program: settings under /etc, a session for
# display managers, a service that starts X with only the receiver on it.
install(FILES ${ZV_PACKAGING_DIR}/receiver/receiver.conf DESTINATION /etc/zelvanor COMPONENT receiver)
install(FILES ${ZV_PACKAGING_DIR}/receiver/zelvanor-kiosk.desktop
  DESTINATION ${CMAKE_INSTALL_DATADIR}/xsessions COMPONENT receiver)
install(FILES ${ZV_PACKAGING_DIR}/receiver/zelvanor-receiver.service
  DESTINATION lib/systemd/system COMPONENT receiver)
install(FILES ${ZV_PACKAGING_DIR}/receiver/sysusers.conf
  DESTINATION lib/sysusers.d RENAME zelvanor-panel.conf COMPONENT receiver)
install(FILES ${ZV_PACKAGING_DIR}/passcode/zelvanor-passcode.service
  DESTINATION lib/systemd/system COMPONENT passcode)
install(FILES ${ZV_PACKAGING_DIR}/passcode/sysusers.conf
  DESTINATION lib/sysusers.d RENAME zelvanor-passcode.conf COMPONENT passcode)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelvanor)
set(CPACK_PACKAGE_VENDOR "Zelvanor")
set(CPACK_PACKAGE_CONTACT "Zelvanor developers <dev@zelvanor.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Open screen casting for Linux meeting rooms")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL common client receiver passcode)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# Library dependencies from the binaries; the casting library is ours.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_COMMON_PACKAGE_NAME zelvanor-common)
set(CPACK_COMPONENT_COMMON_DESCRIPTION "Zelvanor casting library (sessions, media, discovery)")
# Capture, encoding, transports and decoding are GStreamer plug-ins, loaded at run time.
set(CPACK_DEBIAN_COMMON_PACKAGE_DEPENDS
  "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly, gstreamer1.0-x, libavahi-core7, libavahi-client3")
set(CPACK_DEBIAN_COMMON_PACKAGE_RECOMMENDS "gstreamer1.0-libav, gstreamer1.0-pulseaudio, gstreamer1.0-vaapi")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME zelvanor)
set(CPACK_COMPONENT_CLIENT_DESCRIPTION "Zelvanor desktop client and command line: cast this PC's screen to a panel")
set(CPACK_COMPONENT_CLIENT_DEPENDS common)
set(CPACK_DEBIAN_CLIENT_PACKAGE_DEPENDS "libqt5svg5")

set(CPACK_DEBIAN_RECEIVER_PACKAGE_NAME zelvanor-receiver)
set(CPACK_COMPONENT_RECEIVER_DESCRIPTION "Zelvanor receiver: the meeting-room panel that shows cast screens")
set(CPACK_COMPONENT_RECEIVER_DEPENDS common)
set(CPACK_DEBIAN_RECEIVER_PACKAGE_RECOMMENDS "xinit, xserver-xorg")
set(CPACK_DEBIAN_RECEIVER_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_RECEIVER_PACKAGE_CONTROL_EXTRA
  ${ZV_PACKAGING_DIR}/receiver/postinst ${ZV_PACKAGING_DIR}/receiver/conffiles)

set(CPACK_DEBIAN_PASSCODE_PACKAGE_NAME zelvanor-passcode)
set(CPACK_COMPONENT_PASSCODE_DESCRIPTION "Zelvanor passcode service: 4-character passcodes to panel addresses")
set(CPACK_COMPONENT_PASSCODE_DEPENDS common)
set(CPACK_DEBIAN_PASSCODE_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PASSCODE_PACKAGE_CONTROL_EXTRA
  ${ZV_PACKAGING_DIR}/passcode/postinst ${ZV_PACKAGING_DIR}/passcode/prerm)

include(CPack)
