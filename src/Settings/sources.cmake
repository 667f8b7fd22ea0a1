set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS ${_dir}/IMUserDefaults.h)
list(APPEND PARLO_CORE_SOURCES ${_dir}/IMUserDefaults.cpp)
