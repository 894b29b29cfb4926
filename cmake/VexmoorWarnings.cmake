# The warnings that our own code is free of. They are private to our targets: a user's build keeps its own.
function(vexmoor_enable_warnings target)
	target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
	if(VEXMOOR_WARNINGS_AS_ERRORS)
		target_compile_options(${target} PRIVATE -Werror)
	endif()
endfunction()
