# Every header here but the private ones (_p.h) is public; every .cpp is compiled.
file(GLOB _ui_headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.h)
file(GLOB _ui_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp ${CMAKE_CURRENT_LIST_DIR}/*_p.h)
list(FILTER _ui_headers EXCLUDE REGEX "_p\\.h$")
list(APPEND PARLO_UI_PUBLIC_HEADERS ${_ui_headers})
list(APPEND PARLO_UI_SOURCES ${_ui_sources})
