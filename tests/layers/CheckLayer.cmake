# Compiles one file that includes ALLOWED and one that includes UPWARD with
# the include set of LAYER; the first must compile, the second must fail
# because UPWARD is out of reach.
foreach(header IN ITEMS "${ALLOWED}" "${UPWARD}")
  if(NOT EXISTS "${SOURCE_DIR}/${header}")
    message(FATAL_ERROR "${header} does not exist under ${SOURCE_DIR}: the case proves nothing")
  endif()
endforeach()

file(MAKE_DIRECTORY "${WORK_DIR}")
function(compile header result output)
  string(MAKE_C_IDENTIFIER "${header}" name)
  set(source "${WORK_DIR}/${name}.cpp")
  file(WRITE "${source}" "#include \"${header}\"\n")
  execute_process(
    COMMAND "${COMPILER}" "@${FLAGS}" -std=c++20 -fsyntax-only "${source}"
    RESULT_VARIABLE code
    OUTPUT_VARIABLE out
    ERROR_VARIABLE out)
  set(${result} "${code}" PARENT_SCOPE)
  set(${output} "${out}" PARENT_SCOPE)
endfunction()

compile("${ALLOWED}" allowed_code allowed_output)
if(NOT allowed_code EQUAL 0)
  message(FATAL_ERROR
    "The ${LAYER} layer cannot include ${ALLOWED}, which it may:\n${allowed_output}")
endif()

compile("${UPWARD}" upward_code upward_output)
if(upward_code EQUAL 0)
  message(FATAL_ERROR "The ${LAYER} layer can include ${UPWARD}, a header of a layer above it")
endif()
if(NOT upward_output MATCHES "${UPWARD}: No such file or directory")
  message(FATAL_ERROR
    "Including ${UPWARD} from the ${LAYER} layer failed, but not because it is out of reach:\n"
    "${upward_output}")
endif()
message(STATUS "${LAYER} reaches ${ALLOWED} and not ${UPWARD}")
