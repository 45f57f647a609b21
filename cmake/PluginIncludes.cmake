# cmake -D FOLDER=email -D INCLUDE=include -D STAMP=FILE -P PluginIncludes.cmake
#
# Fails when a source in FOLDER includes anything but a file of its own, a header in INCLUDE or one
# of the C++ standard library. The include path alone can't refuse "../framework/x.h" or a library
# of the system.

# Leaves an empty `fault` when `line`, an include directive of a file in FOLDER, is allowed.
function(brisq_judge_include line)
  set(fault "names neither a header of ${INCLUDE}/ nor one of the standard library" PARENT_SCOPE)
  if(line MATCHES "^[ \t]*#[ \t]*include[ \t]*<([a-z_]+)>")
    set(fault "" PARENT_SCOPE)
  elseif(line MATCHES "^[ \t]*#[ \t]*include[ \t]*\"([A-Za-z0-9_]+\\.h)\"")
    if(EXISTS ${FOLDER}/${CMAKE_MATCH_1} OR EXISTS ${INCLUDE}/${CMAKE_MATCH_1})
      set(fault "" PARENT_SCOPE)
    endif()
  endif()
endfunction()

file(GLOB files ${FOLDER}/*.h ${FOLDER}/*.cpp)
foreach(file IN LISTS files)
  file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include")
  foreach(line IN LISTS lines)
    brisq_judge_include("${line}")
    if(fault)
      message(FATAL_ERROR "${file}: ${line} ${fault}")
    endif()
  endforeach()
endforeach()
file(TOUCH ${STAMP})
