# Build settings every TolmMachine target links to: the language level, warnings and the
# optional sanitizers. Kept on an interface target instead of global flags. Only this build
# uses it: it is not exported, since consumers take nothing from it (each library passes on
# the language level itself).
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

# tolm_add_library(NAME SOURCES...): a shared library of the machine layer, with the
# common options, an ALIAS Tolm::NAME and headers found from base/src. Consumers get C++20
# and the include roots with it: headers include one another as "machine/...", so both
# include/ (for <tolm/machine/...>) and include/tolm are on an installed consumer's path.
# The soname carries major.minor, the versions the package promises to keep compatible.
function(tolm_add_library name)
    add_library(${name} SHARED ${ARGN})
    add_library(Tolm::${name} ALIAS ${name})
    target_link_libraries(${name} PRIVATE tolm_build_options)
    target_compile_features(${name} PUBLIC cxx_std_20)
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/base/src>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tolm>)
    set_target_properties(${name} PROPERTIES
        CXX_VISIBILITY_PRESET default
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()

# tolm_add_public_headers(NAME HEADERS...): the headers a user of library NAME includes, paths
# relative to the calling directory. Only these are installed, under include/tolm/ with their
# place below base/src kept (include/tolm/machine/comm/Communicator.h); every other header of
# the library is internal.
function(tolm_add_public_headers name)
    target_sources(${name} PUBLIC FILE_SET HEADERS
        BASE_DIRS ${PROJECT_SOURCE_DIR}/base/src
        FILES ${ARGN})
endfunction()

# tolm_install_library(NAME): installs a library of tolm_add_library and its public headers.
function(tolm_install_library name)
    install(TARGETS ${name} EXPORT TolmMachineTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tolm)
endfunction()
