set(_dir ${CMAKE_CURRENT_LIST_DIR})
list(APPEND PARLO_CORE_PUBLIC_HEADERS ${_dir}/IMDB.h)
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/IMDB_p.h ${_dir}/IMDB.cpp ${_dir}/IMDBSchema.cpp)
# The records' codec: their JSON text, written and read without dictionaries in between.
list(APPEND PARLO_CORE_SOURCES
  ${_dir}/IMJSONText_p.h ${_dir}/IMJSONText.cpp ${_dir}/IMStoredText_p.h ${_dir}/IMStoredText.cpp)
