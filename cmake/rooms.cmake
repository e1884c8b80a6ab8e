# A room is one folder below src/ and one static library. It sees the headers of its own folder and of the rooms that
# it links, and no others: an include that goes up does not compile.
#
#   kv_room(NAME [FLOAT_CODE] [LINKS room...] [EXCLUDE source...])
#
# EXCLUDE: sources of the folder that belong to a program and not to the library.
#
# FLOAT_CODE: single-precision arithmetic on counts and indices is the daily work of this room, so that the warning on
# every int -> float conversion would bury the useful ones; -Wconversion is off there, all other warnings stay on. Its
# kernels are compiled for speed: -O3 in release builds, and loops marked `omp simd` may reorder their own sums.
function(kv_compile_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -fno-math-errno -ffp-contract=off)
  if(KALVARIS_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

function(kv_room name)
  cmake_parse_arguments(ROOM "FLOAT_CODE" "" "LINKS;EXCLUDE" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(TRANSFORM ROOM_EXCLUDE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(REMOVE_ITEM sources ${ROOM_EXCLUDE})
  if(sources)
    add_library(kv_${name} STATIC ${sources})
    target_include_directories(kv_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    kv_compile_options(kv_${name})
    if(ROOM_FLOAT_CODE)
      target_compile_options(kv_${name} PRIVATE -fopenmp-simd $<$<CONFIG:Release>:-O3>)
    else()
      target_compile_options(kv_${name} PRIVATE -Wconversion)
    endif()
    set(scope PUBLIC)
  else()
    add_library(kv_${name} INTERFACE)
    target_include_directories(kv_${name} INTERFACE ${CMAKE_CURRENT_SOURCE_DIR})
    set(scope INTERFACE)
  endif()
  foreach(below ${ROOM_LINKS})
    target_link_libraries(kv_${name} ${scope} kv_${below})
  endforeach()
endfunction()

# kv_tests(NAME room...): all sources of tests/NAME as one program test_NAME, its cases known to ctest one by one.
function(kv_tests name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  kv_compile_options(test_${name})
  foreach(room ${ARGN})
    target_link_libraries(test_${name} PRIVATE kv_${room})
  endforeach()
  target_link_libraries(test_${name} PRIVATE GTest::gmock GTest::gtest_main)
  target_compile_definitions(test_${name} PRIVATE KV_SOURCE_DIR="${CMAKE_SOURCE_DIR}" KV_BINARY_DIR="${CMAKE_BINARY_DIR}")
  gtest_discover_tests(test_${name} PROPERTIES TIMEOUT 900)
endfunction()
