# tolm_add_mpi_test(<target> RANKS <n>... [NAME <name>] [DRIVERS <driver>...] [ARGS <arg>...]
#                   [TIMEOUT <seconds>] [LAUNCH <prefix>...] [OPTIONS <option>...]
#                   [RANK <prefix>...] [ENVIRONMENT <VAR=VALUE>...])
#
# Registers the test executable <target> once per MPI driver and rank count, as the CTest test
# "<name>.<driver>.np<n>" (name defaults to the target). Each runs under the launcher of that
# driver's MPI, with the settings of cmake/TolmMpi.cmake and the further ENVIRONMENT, as
#     <LAUNCH> <launcher> <OPTIONS> -n <n> <RANK> <target> -mpi <driver> <args>...
# LAUNCH starts the launcher through a prefix and RANK every rank (both MPIs' launchers take
# the OPTIONS); a prefix that exits with 77 (the system forbids what it needs) skips the test.
# DRIVERS are values of the "-mpi" option and default to both MPIs: openmpi4 mpich2. Every test
# is labelled "mpi", has a timeout (default 60 s) so that a hang fails, and claims <n>
# processors, so that CTest never runs a 4-rank job beside another job on a 2-core machine.
# ENVIRONMENT adds variables to those the launcher needs.
include_guard(GLOBAL)
include(${CMAKE_CURRENT_LIST_DIR}/TolmMpi.cmake)

function(tolm_add_mpi_test target)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "NAME;TIMEOUT"
        "RANKS;DRIVERS;ARGS;LAUNCH;OPTIONS;RANK;ENVIRONMENT")
    if(ARG_UNPARSED_ARGUMENTS OR NOT ARG_RANKS)
        message(FATAL_ERROR "tolm_add_mpi_test(${target}): expected RANKS <n>... and only "
            "NAME, DRIVERS, ARGS, TIMEOUT, LAUNCH, OPTIONS, RANK, ENVIRONMENT "
            "(got '${ARG_UNPARSED_ARGUMENTS}')")
    endif()
    if(NOT ARG_NAME)
        set(ARG_NAME ${target})
    endif()
    if(NOT ARG_DRIVERS)
        set(ARG_DRIVERS openmpi4 mpich2)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    foreach(driver IN LISTS ARG_DRIVERS)
        tolm_mpi_flavour(${driver} flavour)
        set(environment ${TOLM_MPI_ENVIRONMENT_${flavour}} ${ARG_ENVIRONMENT})
        foreach(ranks IN LISTS ARG_RANKS)
            set(test ${ARG_NAME}.${driver}.np${ranks})
            add_test(NAME ${test}
                COMMAND ${ARG_LAUNCH} ${TOLM_MPI_LAUNCH_${flavour}} ${ARG_OPTIONS} -n ${ranks}
                        ${ARG_RANK} $<TARGET_FILE:${target}> -mpi ${driver} ${ARG_ARGS})
            set_tests_properties(${test} PROPERTIES
                LABELS mpi
                TIMEOUT ${ARG_TIMEOUT}
                PROCESSORS ${ranks}
                SKIP_RETURN_CODE 77
                ENVIRONMENT "${environment}")
        endforeach()
    endforeach()
endfunction()
