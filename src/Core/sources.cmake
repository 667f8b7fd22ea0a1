set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS
  ${_dir}/Parlo.h ${_dir}/ParloDelegate.h ${_dir}/ParloNotifications.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/Parlo_p.h ${_dir}/Parlo.cpp ${_dir}/ParloTransport.cpp ${_dir}/ParloEvents.cpp)
list(APPEND PARLO_CORE_PUBLIC_HEADERS ${_dir}/IMMessageSend.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/ParloSession.cpp ${_dir}/ParloRooms.cpp ${_dir}/ParloMessages.cpp ${_dir}/ParloScheme.cpp)
list(APPEND PARLO_CORE_PUBLIC_HEADERS ${_dir}/ParloFileKeys.h)
list(APPEND PARLO_CORE_SOURCES ${_dir}/ParloFiles_p.h ${_dir}/ParloFiles.cpp ${_dir}/ParloFilesTransfer.cpp
  ${_dir}/ParloFilesReply_p.h ${_dir}/ParloFilesReply.cpp)
