# What `cpack` makes of the install rules: an archive of everything and, of shared libraries, Debian packages, one for
# programs that are built and one to build them. Tools/package.sh makes, checks and tries them all.
if(NOT VEXMOOR_INSTALL OR NOT PROJECT_IS_TOP_LEVEL)
	return()
endif()

set(maintainer "Vexmoor maintainers <maintainers@vexmoor.invalid>")

set(CPACK_PACKAGE_NAME vexmoor)
set(CPACK_PACKAGE_VENDOR "Vexmoor maintainers")
set(CPACK_PACKAGE_CONTACT ${maintainer})
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
	OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE
)

# The archive: one folder, all components.
set(CPACK_GENERATOR TGZ)
set(kind static)
if(BUILD_SHARED_LIBS)
	set(kind shared)
endif()
set(CPACK_PACKAGE_FILE_NAME vexmoor-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}-${kind})

if(BUILD_SHARED_LIBS AND EXISTS /etc/debian_version)
	list(APPEND CPACK_GENERATOR DEB)
	include(cmake/VexmoorDebianPackages.cmake)
endif()

include(CPack)
