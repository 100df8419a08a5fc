# Adds every immediate subdirectory of the current source directory that has a
# CMakeLists.txt, so that each area keeps its own build rules in its own folder.
macro(qzxl_add_subdirectories)
  file(GLOB _qzxl_children LIST_DIRECTORIES true CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT _qzxl_children)
  foreach(_qzxl_child ${_qzxl_children})
    if(IS_DIRECTORY ${_qzxl_child} AND EXISTS ${_qzxl_child}/CMakeLists.txt)
      add_subdirectory(${_qzxl_child})
    endif()
  endforeach()
endmacro()
