# Runs widl and fails the build on "duplicate uuid": widl prints that warning when a dispinterface
# enters the library before a dual interface, and then writes a corrupt LIBID into the .tlb.
execute_process(
    COMMAND ${WIDL} ${WIDL_ARGS}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE out
    ERROR_VARIABLE err)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "widl failed (${result}):\n${out}${err}")
endif()
if("${out}${err}" MATCHES "duplicate uuid")
    message(FATAL_ERROR "widl warned about a duplicate uuid; the type library's LIBID would be corrupt:\n${out}${err}")
endif()
