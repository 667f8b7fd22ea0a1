# Network code that is not Socket.IO: plain-HTTP transfers.
set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_SOURCES ${_dir}/IMFileDownloadReply.h ${_dir}/IMFileDownloadReply.cpp)
