# The "IMMain" layouts (compiled by AUTOUIC where a class includes "ui_Name.h"), and the kit's
# images and translations compiled in as Qt resources (one .qrc per group of files).
file(GLOB _ui_forms CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/IMMain/*.ui)
file(GLOB _ui_qrc CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.qrc)
list(APPEND PARLO_UI_SOURCES ${_ui_forms} ${_ui_qrc})
