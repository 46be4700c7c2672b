# Locates OpenBLAS in its OpenMP threading variant (BLAS, CBLAS and LAPACK in one
# library) and defines the imported target qv::openblas.
#
# Debian installs several BLAS variants side by side and picks one through
# alternatives; we link the OpenMP build explicitly and put its directory on the
# run path, so that BLAS threads and our OpenMP threads share one runtime.
set(_qv_ob_dirs /usr/lib/x86_64-linux-gnu/openblas-openmp /usr/lib64/openblas-openmp)
find_library(QV_OPENBLAS_LIBRARY NAMES openblas HINTS ${_qv_ob_dirs} NO_DEFAULT_PATH)
find_path(QV_OPENBLAS_INCLUDE_DIR cblas.h
  HINTS /usr/include/x86_64-linux-gnu/openblas-openmp /usr/include/openblas NO_DEFAULT_PATH)
if(NOT QV_OPENBLAS_LIBRARY OR NOT QV_OPENBLAS_INCLUDE_DIR)
  message(FATAL_ERROR "OpenBLAS (OpenMP variant) not found; run scripts/setup.sh")
endif()
get_filename_component(QV_OPENBLAS_DIR ${QV_OPENBLAS_LIBRARY} DIRECTORY)
add_library(qv::openblas INTERFACE IMPORTED)
target_link_libraries(qv::openblas INTERFACE ${QV_OPENBLAS_LIBRARY})
target_include_directories(qv::openblas SYSTEM INTERFACE ${QV_OPENBLAS_INCLUDE_DIR})
message(STATUS "OpenBLAS: ${QV_OPENBLAS_LIBRARY}")
