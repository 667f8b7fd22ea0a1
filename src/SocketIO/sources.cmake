set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS
  ${_dir}/IMSocket.h ${_dir}/IMSocketIOClient.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/IMSocketIOClient.cpp ${_dir}/IMSocketIOClientConnection.cpp ${_dir}/IMSocketIOClient_p.h
  ${_dir}/IMSocketIOAckTable.h ${_dir}/IMSocketIOAckTable.cpp
  ${_dir}/IMSocketIOBackoff.h ${_dir}/IMSocketIOBackoff.cpp
  ${_dir}/IMSocketIOPacket.h ${_dir}/IMSocketIOPacket.cpp
  ${_dir}/IMEngineIOPacket.h ${_dir}/IMEngineIOPacket.cpp
  ${_dir}/IMEngineIOConfig.h ${_dir}/IMEngineIOConfig.cpp
  ${_dir}/IMEngineIOTransport.h
  ${_dir}/IMPollingTransport.h ${_dir}/IMPollingTransport.cpp
  ${_dir}/IMWebSocketFrame.h ${_dir}/IMWebSocketFrame.cpp
  ${_dir}/IMWebSocketTransport.h ${_dir}/IMWebSocketTransport.cpp
  ${_dir}/IMEngineIOSocket.h ${_dir}/IMEngineIOSocket.cpp)
