# What the packages of each kind are made of.
if(CPACK_GENERATOR STREQUAL "RPM")
  set(CPACK_COMPONENTS_ALL runtime development_rpm debug_rpm)
else()
  set(CPACK_COMPONENTS_ALL runtime development debug)
endif()
