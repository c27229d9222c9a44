# One object library a room. With QMR_HWCAPS each room is compiled three times from the same sources: for the
# baseline, x86-64-v3 and x86-64-v4; the dynamic loader picks the best shared library under glibc-hwcaps/.
set(QMR_LEVELS "")
if(QMR_HWCAPS AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  set(QMR_LEVELS v3 v4)
endif()

function(qmr_room name)
  foreach(level "" ${QMR_LEVELS})
    set(target qmr_${name})
    if(level)
      set(target qmr_${name}_${level})
    endif()
    add_library(${target} OBJECT ${ARGN})
    target_link_libraries(${target} PUBLIC qmr_options)
    target_compile_definitions(${target} PRIVATE QMR_BUILDING)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    if(level)
      # GCC 12 fuses interleaved a * b + c * d and a * b - c * d whatever -ffp-contract says; without the instructions it
      # can't. (512-bit forms don't heed the option: a test looks for them in the finished libraries.)
      target_compile_options(${target} PRIVATE -march=x86-64-${level} -mno-fma)
      if(level STREQUAL "v4")
        # GCC prefers 256-bit vectors by default; whole 512-bit ones are faster on row kernels.
        target_compile_options(${target} PRIVATE -mprefer-vector-width=512)
      endif()
    endif()
  endforeach()
  set_property(GLOBAL APPEND PROPERTY QMR_ROOMS ${name})
endfunction()

# A GoogleTest program tests/<...>/<name>, linked with the static library so that internal kernels are in reach.
function(qmr_test name label)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE qmrimg_static qmr_test_support GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} PROPERTIES LABELS ${label} DISCOVERY_TIMEOUT 60 DISCOVERY_MODE PRE_TEST)
endfunction()
