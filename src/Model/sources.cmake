set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS
  ${_dir}/IMObject.h ${_dir}/IMClient.h ${_dir}/IMRoom.h ${_dir}/IMMessage.h ${_dir}/IMMessageOption.h
  ${_dir}/IMFile.h ${_dir}/IMBadge.h ${_dir}/IMInviteClient.h ${_dir}/IMDate.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/IMJSONMapping_p.h ${_dir}/IMJSONMapping.cpp ${_dir}/IMRecordStorage_p.h
  ${_dir}/IMObject.cpp ${_dir}/IMClient.cpp ${_dir}/IMRoom.cpp ${_dir}/IMMessage.cpp
  ${_dir}/IMMessageOption.cpp ${_dir}/IMFile.cpp ${_dir}/IMBadge.cpp ${_dir}/IMInviteClient.cpp
  ${_dir}/IMDate.cpp)
