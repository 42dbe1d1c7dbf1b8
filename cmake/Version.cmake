# The version is stated once, where clients can compile against it: in roster/roster.h.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../roster/roster.h version_lines REGEX "^#define ROSTER_VERSION_")
foreach(part IN ITEMS MAJOR MINOR PATCH)
  if(NOT version_lines MATCHES "ROSTER_VERSION_${part} ([0-9]+)")
    message(FATAL_ERROR "roster/roster.h does not define ROSTER_VERSION_${part}")
  endif()
  set(ROSTER_VERSION_${part} ${CMAKE_MATCH_1})
endforeach()
set(ROSTER_VERSION ${ROSTER_VERSION_MAJOR}.${ROSTER_VERSION_MINOR}.${ROSTER_VERSION_PATCH})
