# Everything in the build is instrumented alike, or the sanitizers report what is not there. A finding ends the
# program: a test that goes on after one would pass.
if(ROSTER_SANITIZE)
  add_compile_options(-fsanitize=${ROSTER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ROSTER_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND ROSTER_SANITIZE MATCHES "undefined")
    # It compares type information by address, which hidden types do not share across a plug-in's boundary.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()
if(ROSTER_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzz targets need clang; use the preset 'fuzz'.")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
