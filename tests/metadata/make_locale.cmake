# Compiles a locale from the system's sources into OUT (a directory named like the locale,
# "de_DE.UTF-8"), for use through LOCPATH. localedef reports harmless warnings with exit code 1,
# so success is judged by the files it leaves.
get_filename_component(name ${OUT} NAME)
string(REGEX MATCH "^[^.]+" source ${name})
string(REGEX REPLACE "^[^.]+\\." "" charmap ${name})
find_program(LOCALEDEF localedef REQUIRED)
execute_process(COMMAND ${LOCALEDEF} -c -i ${source} -f ${charmap} ${OUT}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT EXISTS ${OUT}/LC_NUMERIC)
  message(FATAL_ERROR "localedef could not compile ${name} (${rc}): ${err}\n"
                      "Its sources come with the Debian package \"locales\" (scripts/setup).")
endif()
