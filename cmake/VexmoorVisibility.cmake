# A shared library exports what VX_API marks, and no more; its clients see the same marks. A static one has none.
function(vexmoor_export_marked target)
	get_target_property(type ${target} TYPE)
	if(type STREQUAL SHARED_LIBRARY)
		set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
		target_compile_definitions(${target} PUBLIC VX_SHARED=1)
	endif()
endfunction()
