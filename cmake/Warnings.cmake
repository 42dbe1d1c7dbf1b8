# Link roster_warnings privately to compile a target with the project's warnings. They are errors when Roster is the
# top-level project; --compile-no-warning-as-error lets a packager with another compiler continue.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_COMPILE_WARNING_AS_ERROR)
  set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
endif()

add_library(roster_warnings INTERFACE)
target_compile_options(roster_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wdouble-promotion -Wnon-virtual-dtor
  -Wold-style-cast -Woverloaded-virtual -Wcast-align -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wextra-semi
  -Wmissing-declarations -Wundef -Wunused
  -Wno-missing-field-initializers)  # {.field = value} leaves the others at their defaults on purpose
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(roster_warnings INTERFACE
    -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wsuggest-override
    -Wno-restrict)  # g++ 12 reports it for plain std::string concatenation
  if(ROSTER_SANITIZE)
    # Instrumented code hides from g++ what is initialised; the other builds still check it.
    target_compile_options(roster_warnings INTERFACE -Wno-maybe-uninitialized)
  endif()
else()
  target_compile_options(roster_warnings INTERFACE -Winconsistent-missing-override)
endif()
