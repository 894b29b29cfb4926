# find_package(Vexmoor) works from the build tree, from an install prefix, and from a moved copy of it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Vexmoor)

if(VEXMOOR_INSTALL)
	install(
		TARGETS vx_maths vx_kernel vx_geometrics
		EXPORT VexmoorTargets
		FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexmoor
	)
	install(EXPORT VexmoorTargets NAMESPACE Vexmoor:: DESTINATION ${packageDir})
	export(EXPORT VexmoorTargets NAMESPACE Vexmoor:: FILE ${PROJECT_BINARY_DIR}/VexmoorTargets.cmake)

	configure_package_config_file(
		${CMAKE_CURRENT_LIST_DIR}/VexmoorConfig.cmake.in ${PROJECT_BINARY_DIR}/VexmoorConfig.cmake
		INSTALL_DESTINATION ${packageDir}
		NO_SET_AND_CHECK_MACRO
	)
	write_basic_package_version_file(
		${PROJECT_BINARY_DIR}/VexmoorConfigVersion.cmake COMPATIBILITY SameMajorVersion
	)
	install(
		FILES ${PROJECT_BINARY_DIR}/VexmoorConfig.cmake ${PROJECT_BINARY_DIR}/VexmoorConfigVersion.cmake
		DESTINATION ${packageDir}
	)
endif()
