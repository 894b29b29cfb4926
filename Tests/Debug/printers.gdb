# Prints one of everything; gdb_test.sh compares.
set pagination off
set confirm off
set width 0
set height 0
set debuginfod enabled off
break stop_here
run
up
print view
print emptyView
print packed
print strided
print repeated
print emptyStrided
print pattern
print colour
print lanes
print byDistance
print byValue
print farthest
print notANumber
print byPositiveValue
print unset
print sorter
print triangles
