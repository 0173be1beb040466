# cmake -DOUTPUT=FILE -DSOURCES=LIST -P join_tests.cmake: writes a source that joins test sources, so
# that what they share is compiled once. Their headers come first; then each source has a namespace
# of its own, in which its includes have nothing left to declare.
set(includes)
set(joined)
foreach(source IN LISTS SOURCES)
  file(STRINGS ${source} lines REGEX "^#include ")
  list(APPEND includes ${lines})
  get_filename_component(name ${source} NAME_WE)
  string(APPEND joined "namespace ${name} {\n#include \"${source}\"\n}\n")
endforeach()
list(REMOVE_DUPLICATES includes)
list(JOIN includes "\n" includes)
file(WRITE ${OUTPUT} "${includes}\n\n${joined}")
