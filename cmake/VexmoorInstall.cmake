# What `cmake --install` installs: the libraries with their headers, and how a client finds them, with
# find_package(Vexmoor) or `pkg-config vexmoor`. Both work from a moved copy of the prefix, and find_package from the
# build tree as well. Of two components, runtime is what a built client needs, and development what building one takes.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Shared libraries find each other wherever the prefix is moved to.
set_target_properties(vx_geometrics PROPERTIES INSTALL_RPATH $ORIGIN)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Vexmoor)
set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(VEXMOOR_INSTALL)
	install(
		TARGETS vx_maths vx_kernel vx_geometrics
		EXPORT VexmoorTargets
		RUNTIME COMPONENT runtime
		LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
		ARCHIVE COMPONENT development
		FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexmoor COMPONENT development
	)
	install(EXPORT VexmoorTargets NAMESPACE Vexmoor:: DESTINATION ${packageDir} COMPONENT development)
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
		COMPONENT development
	)

	# A client compiles with the definitions that the exported targets carry.
	get_target_property(clientDefinitions vx_kernel INTERFACE_COMPILE_DEFINITIONS)
	list(TRANSFORM clientDefinitions PREPEND -D)
	list(JOIN clientDefinitions " " clientDefinitions)
	list(TRANSFORM VEXMOOR_RUNTIME_OF_ARCHIVES PREPEND -l OUTPUT_VARIABLE privateLibraries)
	list(JOIN privateLibraries " " privateLibraries)
	file(RELATIVE_PATH prefixFromPkgConfig ${CMAKE_INSTALL_PREFIX}/${pkgConfigDir} ${CMAKE_INSTALL_PREFIX})
	configure_file(${CMAKE_CURRENT_LIST_DIR}/vexmoor.pc.in ${PROJECT_BINARY_DIR}/vexmoor.pc.in @ONLY)
	file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/vexmoor.pc INPUT ${PROJECT_BINARY_DIR}/vexmoor.pc.in)
	install(FILES ${PROJECT_BINARY_DIR}/vexmoor.pc DESTINATION ${pkgConfigDir} COMPONENT development)

	# How debuggers show the library's types. Where the prefix is gdb's own, it finds the printers by itself as soon as
	# a program loads the shared library.
	set(debugDir ${CMAKE_INSTALL_DATADIR}/vexmoor/debug)
	install(
		FILES ${PROJECT_SOURCE_DIR}/Tools/debug/vexmoor_gdb.py ${PROJECT_SOURCE_DIR}/Tools/debug/vexmoor.natvis
		DESTINATION ${debugDir}
		COMPONENT development
	)
	if(BUILD_SHARED_LIBS)
		install(
			FILES ${PROJECT_SOURCE_DIR}/Tools/debug/vexmoor_gdb.py
			DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
			RENAME libvx_geometrics.so.${PROJECT_VERSION}-gdb.py
			COMPONENT development
		)
	endif()

	install(
		FILES ${PROJECT_SOURCE_DIR}/COPYRIGHT ${PROJECT_SOURCE_DIR}/CHANGELOG.md
		DESTINATION ${CMAKE_INSTALL_DOCDIR}
		COMPONENT documents
	)
endif()
