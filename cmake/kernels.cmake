# The instruction-set levels that are built, and the objects of a library that has kernels at each.
include(CheckSourceCompiles)

# What the target can have. Several levels need ifunc, which only the GNU C library has here.
function(target_has name expression)
  check_source_compiles(CXX "#include <stdlib.h>
    #if !(${expression})
    #error
    #endif
    int main() {}" ${name})
endfunction()
target_has(RAST_TARGET_X86_64 "defined __x86_64__")
target_has(RAST_TARGET_ARM "defined __arm__")
target_has(RAST_TARGET_AARCH64 "defined __aarch64__")
target_has(RAST_TARGET_GLIBC "defined __GLIBC__")

set(possible baseline)
if(RAST_TARGET_X86_64)
  list(APPEND possible avx2 avx512)
elseif(RAST_TARGET_ARM)
  list(APPEND possible neon)
elseif(RAST_TARGET_AARCH64)
  set(possible neon)
endif()

set(levels ${RAST_LEVELS})
if(NOT levels)
  set(levels ${possible})
  if(NOT RAST_TARGET_GLIBC)
    list(GET possible 0 levels)
  endif()
endif()
foreach(level IN LISTS levels)
  if(NOT level IN_LIST possible)
    message(FATAL_ERROR "RAST_LEVELS: this target has no level '${level}'; it has: ${possible}")
  endif()
endforeach()
list(LENGTH levels level_count)
if(level_count GREATER 1 AND NOT RAST_TARGET_GLIBC)
  message(FATAL_ERROR "RAST_LEVELS: this C library cannot choose at load time; name one level")
endif()
message(STATUS "Instruction-set levels: ${levels}")
# The lowest first, however they are given.
foreach(level IN LISTS possible)
  if(level IN_LIST levels)
    list(APPEND RAST_BUILT_LEVELS ${level})
  endif()
endforeach()

# Without a vector unit, g++ 12 vectorizes loops over elements of generic vectors wrongly.
set(RAST_FLAGS_baseline
  $<$<AND:$<BOOL:${RAST_TARGET_ARM}>,$<CXX_COMPILER_ID:GNU>>:-fno-tree-loop-vectorize>)
set(RAST_FLAGS_avx2 -mavx2)
# g++ 12 warns of its own AVX-512 header's deliberately undefined operands.
set(RAST_FLAGS_avx512 -mavx512f -mavx512bw -mavx512vl -mavx512vbmi
  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
if(RAST_SIMULATED)
  set(RAST_FLAGS_avx512 -I${PROJECT_SOURCE_DIR}/tests/simulated -Wno-psabi)
endif()
set(RAST_FLAGS_neon $<$<BOOL:${RAST_TARGET_ARM}>:-mfpu=neon>)

# How vectors are passed matters to nobody: no function that takes one is called from another file.
set(own_vectors $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
# Controllers have little room. What this makes slower is definitions, which run seldom: copies of
# loops for each case of a condition are an eighth of all code.
set(small_code $<$<CXX_COMPILER_ID:GNU>:-fno-unswitch-loops>)

# Kernels are in <kernels>_<level>.cpp; <kernels>.cpp chooses among them, before any sanitizer is up.
function(add_kernel_objects name kernels)
  foreach(level IN LISTS RAST_BUILT_LEVELS)
    set(source ${kernels}_${level}.cpp)
    list(APPEND sources ${source})
    set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "${RAST_FLAGS_${level}}")
    string(TOUPPER RAST_HAS_${level} defined)
    list(APPEND definitions ${defined}=1)
  endforeach()
  set_source_files_properties(${kernels}.cpp PROPERTIES COMPILE_OPTIONS "-fno-sanitize=all")
  add_library(${name} OBJECT ${kernels}.cpp ${sources} ${ARGN})
  list(LENGTH RAST_BUILT_LEVELS count)
  list(GET RAST_BUILT_LEVELS 0 lowest)
  target_compile_definitions(${name} PUBLIC
    ${definitions} RAST_LEVELS_BUILT=${count} RAST_LOWEST_LEVEL=${lowest}
    RAST_SIMULATED=$<BOOL:${RAST_SIMULATED}>)
  target_include_directories(${name}
    PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(${name} PRIVATE
    -ffp-contract=off -fno-exceptions -fno-rtti -fno-threadsafe-statics
    $<$<BOOL:${RAST_TARGET_ARM}>:-fno-unwind-tables>
    $<$<BOOL:${RAST_TARGET_ARM}>:-fno-asynchronous-unwind-tables>
    ${small_code} ${own_vectors})
endfunction()
