set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS
  ${_dir}/IMError.h ${_dir}/IMDispatch.h ${_dir}/IMNotificationCenter.h ${_dir}/IMLog.h
  ${_dir}/IMPlatform.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/IMError.cpp ${_dir}/IMDispatch.cpp ${_dir}/IMNotificationCenter.cpp ${_dir}/IMLog.cpp
  ${_dir}/IMPlatform.cpp)
