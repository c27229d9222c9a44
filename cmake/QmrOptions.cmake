# Compiler options shared by the library, the host, the tests and the benchmarks.
#
# Results must be the same bits at every optimisation level and vector width: contraction of a * b + c is off
# everywhere, and the options that let a compiler reorder sums are never used.
find_package(OpenMP REQUIRED COMPONENTS CXX)
find_package(Threads REQUIRED)

add_library(qmr_options INTERFACE)
target_compile_features(qmr_options INTERFACE cxx_std_20)
target_include_directories(qmr_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(qmr_options INTERFACE
  -ffp-contract=off -fno-math-errno -fno-trapping-math -Wall -Wextra -Wpedantic)
if(QMR_WERROR)
  target_compile_options(qmr_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Clang warns where it does not vectorise a loop that we ask it to; that costs time, not correctness.
  target_compile_options(qmr_options INTERFACE -Wno-pass-failed)
endif()
if(QMR_SANITIZE)
  target_compile_options(qmr_options INTERFACE -fsanitize=${QMR_SANITIZE} -fno-omit-frame-pointer -g)
  target_link_options(qmr_options INTERFACE -fsanitize=${QMR_SANITIZE})
  if(QMR_SANITIZE MATCHES "undefined")
    # Division by zero in floats is part of the stated behaviour (infinities stand as they come).
    target_compile_options(qmr_options INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
target_link_libraries(qmr_options INTERFACE OpenMP::OpenMP_CXX Threads::Threads)
