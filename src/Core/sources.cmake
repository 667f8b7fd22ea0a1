# The facade and the owners it forwards to.
set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS
  ${_dir}/Parlo.h ${_dir}/ParloDelegate.h ${_dir}/ParloNotifications.h ${_dir}/ParloTypes.h
  ${_dir}/IMMessageSend.h ${_dir}/ParloFileKeys.h)
list(APPEND PARLO_CORE_INCLUDE_DIRS ${_dir}/Connection ${_dir}/State ${_dir}/Api ${_dir}/Files)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/Parlo_p.h ${_dir}/Parlo.cpp ${_dir}/ParloApi.cpp
  ${_dir}/State/ParloAnnouncer.h ${_dir}/State/ParloAnnouncer.cpp
  ${_dir}/State/ParloLogger.h ${_dir}/State/ParloLogger.cpp
  ${_dir}/State/ParloRoomList.h ${_dir}/State/ParloRoomList.cpp
  ${_dir}/State/ParloOutbox.h ${_dir}/State/ParloOutbox.cpp
  ${_dir}/Connection/ParloTransport.h ${_dir}/Connection/ParloTransport.cpp
  ${_dir}/Connection/ParloEventDispatcher.h ${_dir}/Connection/ParloEventDispatcher.cpp
  ${_dir}/Api/ParloSession.h ${_dir}/Api/ParloSession.cpp
  ${_dir}/Api/ParloRoomRequests.h ${_dir}/Api/ParloRoomRequests.cpp
  ${_dir}/Api/ParloMessageRequests.h ${_dir}/Api/ParloMessageRequests.cpp
  ${_dir}/Api/ParloURLScheme.h ${_dir}/Api/ParloURLScheme.cpp
  ${_dir}/Files/ParloFiles.h ${_dir}/Files/ParloFiles.cpp ${_dir}/Files/ParloFileTransfers.cpp
  ${_dir}/Files/ParloFileSupport_p.h ${_dir}/Files/ParloFileCache.cpp)
