# The warnings that our own code is free of. They are private to our targets: a user's build keeps its own.
function(vexmoor_enable_warnings target)
	if(MSVC) # the driver: Microsoft's compiler's own, or clang-cl
		target_compile_options(${target} PRIVATE /W4)
		if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
			target_compile_options(${target} PRIVATE -Wpedantic -Wshadow -Wconversion)
		else()
			# Of exported classes: a member's class is not exported, as that of a view, which is compiled wherever it is
			# used.
			target_compile_options(${target} PRIVATE /wd4251)
		endif()
	else()
		target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
	endif()
	if(VEXMOOR_WARNINGS_AS_ERRORS)
		target_compile_options(${target} PRIVATE $<IF:$<BOOL:${MSVC}>,/WX,-Werror>)
	endif()
endfunction()
