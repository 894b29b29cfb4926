include(CheckLinkerFlag)

# A shared library exports what VX_API and its like mark, and no more; its clients see the same marks. A static one has
# none. exporting is the definition that tells a library's own sources from its clients', on Windows.
function(vexmoor_export_marked target exporting)
	get_target_property(type ${target} TYPE)
	if(NOT type STREQUAL SHARED_LIBRARY)
		return()
	endif()
	set_target_properties(
		${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON DEFINE_SYMBOL ${exporting}
	)
	target_compile_definitions(${target} PUBLIC VX_SHARED=1)

	# Elsewhere than with ELF, no other module takes an instance of a template for its own.
	set(script ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/exports.map)
	if(UNIX AND NOT APPLE)
		check_linker_flag(CXX "LINKER:--version-script=${script}" VEXMOOR_LINKER_HAS_VERSION_SCRIPTS)
	endif()
	if(VEXMOOR_LINKER_HAS_VERSION_SCRIPTS)
		target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
		set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
	endif()
endfunction()
