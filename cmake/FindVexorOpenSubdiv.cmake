# Finds OpenSubdiv's CPU library (Debian: libosd-dev) and gives the imported target
# vexor::opensubdiv when it is there. The build requires it; the installed package includes
# this file too, for consumers that link the library's objects statically.
if(NOT TARGET vexor::opensubdiv)
  find_path(VEXOR_OPENSUBDIV_INCLUDE_DIR opensubdiv/far/topologyRefiner.h)
  find_library(VEXOR_OPENSUBDIV_LIBRARY NAMES osdCPU)
  if(VEXOR_OPENSUBDIV_INCLUDE_DIR AND VEXOR_OPENSUBDIV_LIBRARY)
    add_library(vexor::opensubdiv UNKNOWN IMPORTED)
    set_target_properties(vexor::opensubdiv PROPERTIES
      IMPORTED_LOCATION "${VEXOR_OPENSUBDIV_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${VEXOR_OPENSUBDIV_INCLUDE_DIR}")
  endif()
endif()
