# Deployment values: pass strings, the six host names, three ports and the three built-in
# fallback address lists are fixed at build time. -DQZ_DEPLOYMENT=<file> names a profile that
# sets them as cache variables, so a value given on the command line wins over the profile.
# A relative profile path is taken from the source tree (the entry is a STRING, so that CMake
# does not resolve it against the working directory first).
set(QZ_DEPLOYMENT "${CMAKE_CURRENT_SOURCE_DIR}/deploy/local.cmake" CACHE STRING
    "Deployment profile that sets the QZ_* deployment values")
get_filename_component(_qz_profile "${QZ_DEPLOYMENT}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
if(NOT EXISTS "${_qz_profile}")
  message(FATAL_ERROR "QZ_DEPLOYMENT names a missing file: ${QZ_DEPLOYMENT}")
endif()

# Cache entries survive a change of profile, so in a build directory that was configured with
# another profile the old values would silently stay.
if(DEFINED _QZ_DEPLOYMENT_APPLIED AND NOT _QZ_DEPLOYMENT_APPLIED STREQUAL _qz_profile)
  message(WARNING "QZ_DEPLOYMENT changed from ${_QZ_DEPLOYMENT_APPLIED} to ${_qz_profile}: "
                  "deployment values already in this build directory's cache stay. Configure "
                  "a fresh build directory to take every value from the new profile.")
endif()
set(_QZ_DEPLOYMENT_APPLIED "${_qz_profile}" CACHE INTERNAL "Profile last read")
include("${_qz_profile}")

set(_qz_host_variables
    QZ_COLLECTOR_HOST QZ_AUX_HOST1 QZ_AUX_HOST2 QZ_STRATEGY_HOST QZ_CONFIG_HOST QZ_AUX_HOST3)
set(_qz_port_variables QZ_COLLECTOR_PORT QZ_STRATEGY_PORT QZ_CONFIG_PORT)
set(_qz_pass_variables QZ_STRATEGY_PASS QZ_CONFIG_PASS QZ_REQUEST_SALT)
# Each list with the number of entries the routing holds.
set(_qz_list_variables QZ_FALLBACK_ADDRESSES QZ_POST_FALLBACK_ADDRESSES QZ_SPARE_FALLBACK_ADDRESSES)
set(_qz_list_sizes 6 8 4)

foreach(var IN LISTS _qz_host_variables _qz_port_variables _qz_pass_variables _qz_list_variables)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "The deployment profile ${_qz_profile} does not set ${var}")
  endif()
endforeach()

# The values become C++ string literals; quotes, backslashes and blanks have no place in them.
foreach(var IN LISTS _qz_host_variables _qz_pass_variables)
  if("${${var}}" STREQUAL "" OR "${${var}}" MATCHES "[\"\\\\ \t\r\n;]")
    message(FATAL_ERROR "${var} must be a non-empty text without quotes, backslashes, blanks or "
                        "semicolons; it is \"${${var}}\"")
  endif()
endforeach()

foreach(var IN LISTS _qz_port_variables)
  if(NOT "${${var}}" MATCHES "^[0-9]+$" OR "${${var}}" LESS 1 OR "${${var}}" GREATER 65535)
    message(FATAL_ERROR "${var} must be a port number from 1 to 65535; it is \"${${var}}\"")
  endif()
endforeach()

# An address is a dotted IPv4 text of at most 15 characters: the strategy blob refuses longer
# entries, and the built-in lists keep to the same rule.
function(_qz_check_address var address)
  string(LENGTH "${address}" length)
  if(length GREATER 15 OR NOT "${address}" MATCHES
     "^([0-9][0-9]?[0-9]?)\\.([0-9][0-9]?[0-9]?)\\.([0-9][0-9]?[0-9]?)\\.([0-9][0-9]?[0-9]?)$")
    message(FATAL_ERROR "${var}: \"${address}\" is no dotted IPv4 address")
  endif()
  foreach(group 1 2 3 4)
    if(CMAKE_MATCH_${group} GREATER 255)
      message(FATAL_ERROR "${var}: \"${address}\" has a part above 255")
    endif()
  endforeach()
endfunction()

# Sets <out> to a braced C++ initialiser of string literals, one per list entry.
function(_qz_cxx_string_array out)
  set(items "")
  foreach(entry IN LISTS ARGN)
    list(APPEND items "\"${entry}\"")
  endforeach()
  list(JOIN items ", " joined)
  set(${out} "{${joined}}" PARENT_SCOPE)
endfunction()

foreach(var size IN ZIP_LISTS _qz_list_variables _qz_list_sizes)
  list(LENGTH ${var} length)
  if(NOT length EQUAL size)
    message(FATAL_ERROR "${var} must hold ${size} addresses separated by ';'; it holds ${length}: "
                        "\"${${var}}\"")
  endif()
  foreach(address IN LISTS ${var})
    _qz_check_address(${var} "${address}")
  endforeach()
  _qz_cxx_string_array(${var}_CXX ${${var}})
endforeach()

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/deployment_config.h.in
               ${CMAKE_CURRENT_BINARY_DIR}/generated/deployment_config.h @ONLY)
