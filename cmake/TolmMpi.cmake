# The MPI implementations the drivers are built against, and how their jobs are launched.
#
# Each MPI is found at an explicit place (Debian's layout by default; override the cache
# variables for another), never through mpicc/mpirun alternatives, because both MPIs are used
# in the same build:
#   openmpi: Open MPI 4.1 (libopenmpi-dev, openmpi-bin), launcher mpiexec.openmpi
#   mpich:   MPICH 4.0 (libmpich-dev, mpich), launcher mpiexec.mpich
# Drivers are named by the values of the "-mpi" option: openmpi4, mpich2 and platform, the
# system's default MPI (Open MPI on Debian amd64).
include_guard(GLOBAL)

set(_tolm_multiarch_lib /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(_tolm_multiarch_include /usr/include/${CMAKE_LIBRARY_ARCHITECTURE})

find_path(TOLM_OPENMPI_INCLUDE_DIR mpi.h
    PATHS ${_tolm_multiarch_lib}/openmpi/include NO_DEFAULT_PATH
    DOC "Directory of Open MPI's mpi.h")
find_library(TOLM_OPENMPI_LIBRARY NAMES mpi
    PATHS ${_tolm_multiarch_lib}/openmpi/lib NO_DEFAULT_PATH
    DOC "Open MPI's libmpi")
find_program(TOLM_OPENMPI_LAUNCHER mpiexec.openmpi DOC "Open MPI's mpiexec")
find_path(TOLM_MPICH_INCLUDE_DIR mpi.h
    PATHS ${_tolm_multiarch_include}/mpich NO_DEFAULT_PATH
    DOC "Directory of MPICH's mpi.h")
find_library(TOLM_MPICH_LIBRARY NAMES mpich
    PATHS ${_tolm_multiarch_lib} NO_DEFAULT_PATH
    DOC "MPICH's libmpich")
find_program(TOLM_MPICH_LAUNCHER mpiexec.mpich DOC "MPICH's mpiexec")

foreach(_var TOLM_OPENMPI_INCLUDE_DIR TOLM_OPENMPI_LIBRARY TOLM_OPENMPI_LAUNCHER
             TOLM_MPICH_INCLUDE_DIR TOLM_MPICH_LIBRARY TOLM_MPICH_LAUNCHER)
    if(NOT ${_var})
        message(FATAL_ERROR "MPI setup: ${_var} not found (install the packages of "
            "scripts/packages.txt or set ${_var})")
    endif()
endforeach()

# The release of each MPI, read from its mpi.h, for the server's "-version" text:
# TOLM_OPENMPI_DESCRIPTION ("Open MPI 4.1.4") and TOLM_MPICH_DESCRIPTION ("MPICH 4.0.2").
function(_tolm_mpi_description flavour out)
    string(TOUPPER ${flavour} upper)
    file(READ ${TOLM_${upper}_INCLUDE_DIR}/mpi.h header)
    if(flavour STREQUAL "openmpi")
        foreach(part MAJOR MINOR RELEASE)
            string(REGEX MATCH "#define OMPI_${part}_VERSION ([0-9]+)" _ "${header}")
            list(APPEND numbers ${CMAKE_MATCH_1})
        endforeach()
        list(JOIN numbers "." release)
        set(${out} "Open MPI ${release}" PARENT_SCOPE)
    else()
        string(REGEX MATCH "#define MPICH_VERSION \"([^\"]+)\"" _ "${header}")
        set(${out} "MPICH ${CMAKE_MATCH_1}" PARENT_SCOPE)
    endif()
endfunction()
_tolm_mpi_description(openmpi TOLM_OPENMPI_DESCRIPTION)
_tolm_mpi_description(mpich TOLM_MPICH_DESCRIPTION)

# The platform driver follows Debian's mpi alternative (the MPI behind /usr/bin/mpicc's
# headers), which is Open MPI on Debian amd64; without the alternative it is Open MPI.
set(_tolm_platform_default openmpi)
if(EXISTS ${_tolm_multiarch_include}/mpi)
    file(REAL_PATH ${_tolm_multiarch_include}/mpi _tolm_alternative)
    if(_tolm_alternative MATCHES "mpich")
        set(_tolm_platform_default mpich)
    endif()
endif()
set(TOLM_PLATFORM_MPI ${_tolm_platform_default} CACHE STRING
    "MPI the platform driver TolmPlatformMpi is built against (openmpi or mpich)")
set_property(CACHE TOLM_PLATFORM_MPI PROPERTY STRINGS openmpi mpich)

# Imported targets Tolm::NativeMpi_openmpi and Tolm::NativeMpi_mpich: the MPI headers (as
# system headers) and library. The C++ bindings are skipped: only the C interface is used.
foreach(_flavour openmpi mpich)
    string(TOUPPER ${_flavour} _upper)
    add_library(Tolm::NativeMpi_${_flavour} INTERFACE IMPORTED GLOBAL)
    set_target_properties(Tolm::NativeMpi_${_flavour} PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES ${TOLM_${_upper}_INCLUDE_DIR}
        INTERFACE_LINK_LIBRARIES ${TOLM_${_upper}_LIBRARY}
        INTERFACE_COMPILE_DEFINITIONS "OMPI_SKIP_MPICXX=1;MPICH_SKIP_MPICXX=1")
endforeach()

# How each MPI launches a job on this machine; the one place these settings live. The test
# harness and the generated tolm-mpi-launch script both use them.
#  - Open MPI refuses to run as root (as in containers) unless both variables are set.
#  - --oversubscribe: tests start up to 4 ranks on 2 cores.
#  - --bind-to none: Open MPI would bind each rank to a core; the machine layer binds processes
#    itself, as MPICH's launcher leaves them unbound.
#  Shared memory between ranks (btl vader, with CMA single copy) works here as configured.
set(TOLM_MPI_LAUNCH_openmpi ${TOLM_OPENMPI_LAUNCHER} --oversubscribe --bind-to none
    CACHE INTERNAL "Open MPI launcher and its options")
set(TOLM_MPI_ENVIRONMENT_openmpi OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
    CACHE INTERNAL "Environment of Open MPI jobs")
set(TOLM_MPI_LAUNCH_mpich ${TOLM_MPICH_LAUNCHER} CACHE INTERNAL "MPICH launcher and its options")
set(TOLM_MPI_ENVIRONMENT_mpich "" CACHE INTERNAL "Environment of MPICH jobs")

# tolm_mpi_flavour(<driver> <out>): the MPI ("openmpi" or "mpich") a driver is built against.
function(tolm_mpi_flavour driver out)
    if(driver STREQUAL "openmpi4")
        set(${out} openmpi PARENT_SCOPE)
    elseif(driver STREQUAL "mpich2")
        set(${out} mpich PARENT_SCOPE)
    elseif(driver STREQUAL "platform")
        set(${out} ${TOLM_PLATFORM_MPI} PARENT_SCOPE)
    else()
        message(FATAL_ERROR "Unknown MPI driver '${driver}' (openmpi4, mpich2 or platform)")
    endif()
endfunction()

# tolm_add_mpi_driver_objects(<flavour> <sources>...): the driver sources compiled once against
# one MPI, as object library tolm_mpi_driver_<flavour>.
function(tolm_add_mpi_driver_objects flavour)
    set(target tolm_mpi_driver_${flavour})
    add_library(${target} OBJECT ${ARGN})
    target_link_libraries(${target} PUBLIC tolm_build_options Tolm::NativeMpi_${flavour})
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/base/src)
    # Calls into MPI go straight through the GOT, saving the PLT jump on every forwarded call.
    target_compile_options(${target} PRIVATE -fno-plt)
    set_target_properties(${target} PROPERTIES
        POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# tolm_add_mpi_driver(<library name> <flavour>): a loadable driver lib<name>.so from the
# objects of that flavour. Unresolved symbols fail the link rather than the first dlopen, except
# under the thread sanitizer, whose runtime the executable brings (cmake/TolmTargets.cmake).
# Each driver is listed, with the MPI it is built against, in the global property
# TOLM_MPI_DRIVERS ("<name>=<description>" entries, in the order added).
function(tolm_add_mpi_driver name flavour)
    string(TOUPPER ${flavour} upper)
    set_property(GLOBAL APPEND PROPERTY TOLM_MPI_DRIVERS "${name}=${TOLM_${upper}_DESCRIPTION}")
    add_library(${name} MODULE $<TARGET_OBJECTS:tolm_mpi_driver_${flavour}>)
    target_link_libraries(${name} PRIVATE tolm_mpi_driver_${flavour})
    if(NOT TOLM_SANITIZE MATCHES "thread")
        target_link_options(${name} PRIVATE LINKER:--no-undefined)
    endif()
    install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# tolm-mpi-launch DRIVER RANKS PROGRAM [ARGS...], next to the executables: runs a program under
# the launcher of the MPI behind a driver, with the settings above (used by bench/run-all.sh).
string(JOIN " " _tolm_openmpi_launch ${TOLM_MPI_LAUNCH_openmpi})
string(JOIN " " _tolm_openmpi_env ${TOLM_MPI_ENVIRONMENT_openmpi})
string(JOIN " " _tolm_mpich_launch ${TOLM_MPI_LAUNCH_mpich})
string(JOIN " " _tolm_mpich_env ${TOLM_MPI_ENVIRONMENT_mpich})
file(CONFIGURE OUTPUT ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/tolm-mpi-launch @ONLY CONTENT [=[
#!/usr/bin/env bash
# Generated by cmake/TolmMpi.cmake. Usage: tolm-mpi-launch DRIVER RANKS PROGRAM [ARGS...]
# Runs PROGRAM on RANKS processes under the launcher of the MPI that DRIVER (a value of the
# "-mpi" option: openmpi4, mpich2, platform) is built against. tolm-server is given
# "-mpi DRIVER" unless its arguments choose a driver (or a serial run) already.
set -euo pipefail
if [[ $# -lt 3 ]]; then
    echo "usage: tolm-mpi-launch DRIVER RANKS PROGRAM [ARGS...]" >&2
    exit 2
fi
driver=$1 ranks=$2
shift 2
case "$driver" in
    openmpi4) flavour=openmpi ;;
    mpich2) flavour=mpich ;;
    platform) flavour=@TOLM_PLATFORM_MPI@ ;;
    *) echo "tolm-mpi-launch: unknown MPI driver '$driver' (openmpi4, mpich2 or platform)" >&2
       exit 2 ;;
esac
# The server is given the driver that matches the launcher, unless its arguments name one.
program=$1
shift
arguments=("$@")
if [[ $(basename "$program") == tolm-server* ]]; then
    given=0
    for argument in "$@"; do
        [[ $argument == -mpi || $argument == -mpidriver || $argument == -s ]] && given=1
    done
    [[ $given == 1 ]] || arguments=(-mpi "$driver" "$@")
fi
if [[ $flavour == openmpi ]]; then
    exec env @_tolm_openmpi_env@ @_tolm_openmpi_launch@ -n "$ranks" "$program" ${arguments[@]+"${arguments[@]}"}
fi
exec env @_tolm_mpich_env@ @_tolm_mpich_launch@ -n "$ranks" "$program" ${arguments[@]+"${arguments[@]}"}
]=])
file(CHMOD ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/tolm-mpi-launch
    PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                WORLD_READ WORLD_EXECUTE)
# It names only the launchers' own (absolute) paths, so the same script works installed.
install(PROGRAMS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/tolm-mpi-launch
    DESTINATION ${CMAKE_INSTALL_BINDIR})
