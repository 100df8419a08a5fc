# Adds every immediate subdirectory of the current source directory that has a
# CMakeLists.txt, so that each area keeps its own build rules in its own folder. A folder whose
# CMakeLists.txt starts a project of its own (tests/consumer) is built apart, not added.
macro(qzxl_add_subdirectories)
  file(GLOB _qzxl_children LIST_DIRECTORIES true CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT _qzxl_children)
  foreach(_qzxl_child ${_qzxl_children})
    if(IS_DIRECTORY ${_qzxl_child} AND EXISTS ${_qzxl_child}/CMakeLists.txt)
      file(STRINGS ${_qzxl_child}/CMakeLists.txt _qzxl_own_project REGEX "^project\\(")
      if(NOT _qzxl_own_project)
        add_subdirectory(${_qzxl_child})
      endif()
    endif()
  endforeach()
endmacro()
