# Everything in the build is instrumented alike, or the sanitizers report false errors. A finding ends the program,
# because a test that continued would pass.
if(ROSTER_SANITIZE)
  add_compile_options(-fsanitize=${ROSTER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ROSTER_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND ROSTER_SANITIZE MATCHES "undefined")
    # -fsanitize=function compares type information by address, which hidden types do not share with a plug-in.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()
if(ROSTER_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzz targets need clang; use the preset 'fuzz'.")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
