# Build settings every TolmMachine target links to: the language level, warnings and the
# optional sanitizers. Kept on an interface target instead of global flags.
add_library(tolm_build_options INTERFACE)
add_library(Tolm::build_options ALIAS tolm_build_options)
target_compile_features(tolm_build_options INTERFACE cxx_std_20)
target_compile_options(tolm_build_options INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:-Wall -Wextra -Wpedantic>
    $<$<COMPILE_LANG_AND_ID:C,GNU,Clang>:-Wall -Wextra -Wpedantic>)
target_compile_definitions(tolm_build_options INTERFACE
    $<$<CONFIG:Debug>:TOLM_DEVELOPMENT_BUILD=1>)
if(TOLM_SANITIZE)
    target_compile_options(tolm_build_options INTERFACE
        -fsanitize=${TOLM_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(tolm_build_options INTERFACE -fsanitize=${TOLM_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT TOLM_SANITIZE MATCHES "thread")
        # clang links its sanitizer runtime statically into executables only; the MPI drivers
        # (linked with --no-undefined) need it as a shared library, as GCC does, found where
        # clang keeps it. The thread sanitizer's runtime cannot be shared (libstdc++'s start-up
        # would call it before it is set up): it stays in the executables, and the libraries
        # find its symbols there.
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-x86_64.so
            OUTPUT_VARIABLE _tolm_asan_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(_tolm_sanitizer_dir ${_tolm_asan_runtime} DIRECTORY)
        target_link_options(tolm_build_options INTERFACE
            -shared-libsan -Wl,-rpath,${_tolm_sanitizer_dir})
    endif()
endif()
install(TARGETS tolm_build_options EXPORT TolmMachineTargets)

# tolm_add_library(NAME SOURCES...): a shared library of the machine layer, with the
# common options, an ALIAS Tolm::NAME and headers found from base/src.
function(tolm_add_library name)
    add_library(${name} SHARED ${ARGN})
    add_library(Tolm::${name} ALIAS ${name})
    target_link_libraries(${name} PRIVATE tolm_build_options)
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/base/src>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tolm>)
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET default)
endfunction()
