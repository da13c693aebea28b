# Installation: library, public headers, pkg-config file and CMake package.
include(CMakePackageConfigHelpers)

# Only headers of what users call; internal headers stay in the source tree.
set(ORBT_PUBLIC_HEADERS
  ORBTexture.h ORBTextureHeader.h ORBTextureFormat.h ORBTextureInfo.h ORBTextureUtilities.h
  ORBTextureLegacy.h ORBTextureDiffTools.h ORBTPixelConversion.h)
list(TRANSFORM ORBT_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/Source/)
set(ORBT_TOOLS_HEADERS
  ORBTDefines.h ORBTString.h ORBTArray.h ORBTMap.h ORBTRawTexture.h ORBTCallContext.h)
list(TRANSFORM ORBT_TOOLS_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/Source/Tools/)

install(TARGETS ORBTexLib EXPORT ORBTexLibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib)
install(FILES ${ORBT_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib)
install(FILES ${ORBT_TOOLS_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Tools)
# Included by the texture header.
install(FILES ${PROJECT_SOURCE_DIR}/Source/Model/ORBTextureLegacyApi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Model)
# Exported codec entries.
install(FILES ${PROJECT_SOURCE_DIR}/Source/Codecs/ORBTC/ORBTCCodec.h ${PROJECT_SOURCE_DIR}/Source/Codecs/ORBTC/ORBTCFormat.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Codecs/ORBTC)
# The optimiser's entry, progress record and hook, and the extended decoder.
install(FILES ${PROJECT_SOURCE_DIR}/Source/Codecs/ORBTC/fnzj/wrapper.h
  ${PROJECT_SOURCE_DIR}/Source/Codecs/ORBTC/fnzj/wrapper_decoder.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Codecs/ORBTC/fnzj)
install(FILES ${PROJECT_SOURCE_DIR}/Source/Bitmap/Bitmap.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Bitmap)
install(FILES ${PROJECT_SOURCE_DIR}/Source/Codecs/ETC/ETCCodec.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Codecs/ETC)
install(FILES ${PROJECT_SOURCE_DIR}/Source/Codecs/DXTCodec.h ${PROJECT_SOURCE_DIR}/Source/Codecs/YUVCodec.h
  ${PROJECT_SOURCE_DIR}/Source/Codecs/RGBGCodec.h ${PROJECT_SOURCE_DIR}/Source/Codecs/OneBPPCodec.h
  ${PROJECT_SOURCE_DIR}/Source/Codecs/RGB9E5Codec.h ${PROJECT_SOURCE_DIR}/Source/Codecs/ASTCCodec.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ORBTexLib/Codecs)

set(ORBT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ORBTexLib)
install(EXPORT ORBTexLibTargets NAMESPACE ORBTexLib:: DESTINATION ${ORBT_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ORBTexLibConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ORBTexLibConfig.cmake INSTALL_DESTINATION ${ORBT_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ORBTexLibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ORBTexLibConfig.cmake ${PROJECT_BINARY_DIR}/ORBTexLibConfigVersion.cmake
  DESTINATION ${ORBT_CMAKE_DIR})

# The .pc file locates the prefix from its own directory, so it stays right
# whatever prefix is given at install time.
file(RELATIVE_PATH ORBT_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ORBT_PC_TO_PREFIX "${ORBT_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ORBTexLib.pc.in ${PROJECT_BINARY_DIR}/ORBTexLib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ORBTexLib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
