# Compiler settings that every target of the project shares, and the function that makes a folder a target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# Results must not depend on the compiler fusing operations, so contraction is off everywhere.
add_compile_options(-O3 -ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                    -Wno-sign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 reports std::string's own code with -Wrestrict (GCC bug 105651).
  add_compile_options(-fno-math-errno -fno-trapping-math -Wno-restrict)
  if(ZUC_RTGUARD)
    # With assertions on it finds writes in fmt's parser that cannot happen.
    add_compile_options(-Wno-stringop-overflow)
  endif()
endif()

# What turns a fault of memory into an end instead of a way in; docs/RELIABILITY.md has what it costs. A sanitizer
# finds more, and goes together with none of it. The folders of kernels and effects take the library's own checks
# out again: they would stand in every loop.
if(ZUC_SANITIZE STREQUAL "")
  add_compile_options(-fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(ZUC_SANITIZE STREQUAL "address" OR ZUC_SANITIZE STREQUAL "fuzzer")
  set(sanitizers -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(ZUC_SANITIZE STREQUAL "thread")
  set(sanitizers -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT ZUC_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZUC_SANITIZE is '${ZUC_SANITIZE}'; allowed are empty, address, thread and fuzzer")
endif()
if(ZUC_SANITIZE STREQUAL "fuzzer")
  list(APPEND sanitizers -fsanitize=fuzzer-no-link)
endif()
add_compile_options(${sanitizers})
add_link_options(${sanitizers})

# Targets whose branches scripts/coverage counts; kernels are left out, whose loops it would slow down. Without
# inlining, since the standard library's branches would count where it is used.
function(zuc_count_branches target)
  if(ZUC_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -O1 -fno-inline)
  endif()
endfunction()
if(ZUC_COVERAGE)
  add_link_options(--coverage)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

# zuc_folder(NAME dependencies...): the sources below this folder as one static library. Dependencies
# that no header needs are linked by the caller as PRIVATE.
function(zuc_folder name)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${name} PUBLIC ${ARGN})
  if(NOT name STREQUAL "kraaudiodsp")
    zuc_count_branches(${name})
  endif()
endfunction()
