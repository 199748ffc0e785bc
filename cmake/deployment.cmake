# Deployment values (pass strings now; hosts, ports and fallback addresses join them) are set at
# build time. -DQZ_DEPLOYMENT=<file> names a profile that sets them as cache variables, so a
# value given on the command line wins over the profile.
set(QZ_DEPLOYMENT "${CMAKE_CURRENT_SOURCE_DIR}/deploy/local.cmake" CACHE FILEPATH
    "Deployment profile that sets the QZ_* deployment values")
if(NOT EXISTS "${QZ_DEPLOYMENT}")
  message(FATAL_ERROR "QZ_DEPLOYMENT names a missing file: ${QZ_DEPLOYMENT}")
endif()
include("${QZ_DEPLOYMENT}")

foreach(var QZ_STRATEGY_PASS QZ_CONFIG_PASS QZ_REQUEST_SALT)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "The deployment profile ${QZ_DEPLOYMENT} does not set ${var}")
  endif()
endforeach()

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/deployment_config.h.in
               ${CMAKE_CURRENT_BINARY_DIR}/generated/deployment_config.h @ONLY)
