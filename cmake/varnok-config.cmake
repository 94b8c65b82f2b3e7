include(${CMAKE_CURRENT_LIST_DIR}/varnok-targets.cmake)
