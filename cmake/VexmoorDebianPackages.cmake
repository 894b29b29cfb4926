# The Debian packages: a component each, whose description begins with its summary.
set(runtimePackage libvexmoor${PROJECT_VERSION_MAJOR})
set(developmentPackage libvexmoor-dev)
set(debianRelease 1)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${debianRelease})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(whatItDoes "Puts transparent particles into back-to-front order, once per frame and draw
call, and writes the index buffer that the GPU draws: exact to the bit, in
memory of the caller's, without allocating."
)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtimePackage})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "render-time particle sorter, shared libraries
${whatItDoes}

This package has the libraries that built programs need.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${developmentPackage})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtimePackage} (= ${PROJECT_VERSION}-${debianRelease})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "render-time particle sorter, headers
${whatItDoes}

This package has what it takes to build programs: the headers, and the files
by which CMake and pkg-config find the library.")

# What Debian wants to find in every package, and nobody else: these files belong to no plain installation.
string(TIMESTAMP debianDate "%a, %d %b %Y %H:%M:%S +0000" UTC)
function(install_debian_documents component package)
	set(folder ${PROJECT_BINARY_DIR}/debian/${package})
	configure_file(cmake/debian/changelog.in ${folder}/changelog.Debian @ONLY)
	configure_file(cmake/debian/${component}-overrides ${folder}/overrides COPYONLY)
	configure_file(CHANGELOG.md ${folder}/changelog COPYONLY)
	execute_process(
		COMMAND gzip -9nf changelog.Debian changelog WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY
	)
	set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
	install(
		FILES ${folder}/changelog.Debian.gz ${folder}/changelog.gz
		DESTINATION ${documents} COMPONENT ${component} EXCLUDE_FROM_ALL
	)
	install(
		FILES COPYRIGHT
		DESTINATION ${documents} RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL
	)
	install(
		FILES ${folder}/overrides
		DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME ${package}
		COMPONENT ${component} EXCLUDE_FROM_ALL
	)
endfunction()
install_debian_documents(runtime ${runtimePackage})
install_debian_documents(development ${developmentPackage})
