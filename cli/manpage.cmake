# Writes the manual page of the inkweave command with help2man: the program's own --help and --version,
# and each subcommand's --help as a section of its own.
#   cmake -DHELP2MAN=... -DPROGRAM=.../inkweave -DOUTPUT=.../inkweave.1 -P manpage.cmake
set(commands print decode proof dump info)
set(include "[DESCRIPTION]\n")
string(APPEND include "inkweave prints documents to the printer's own byte stream through the render plug-in "
       "(libinkweave.so), exactly as the platform's printer driver drives it, and decodes such streams back "
       "into pictures of the printed page (a virtual printer).\n\n")
string(APPEND include "[COMMANDS]\n")
foreach(command ${commands})
  execute_process(COMMAND ${PROGRAM} ${command} --help OUTPUT_VARIABLE help RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${PROGRAM} ${command} --help failed (${result})")
  endif()
  # roff: backslashes doubled, a leading dot or quote escaped, the program's path as its name.
  string(REPLACE "\\" "\\\\" help "${help}")
  string(REPLACE "${PROGRAM}" "inkweave" help "${help}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" help "${help}")
  string(APPEND include ".SS \"inkweave ${command}\"\n.nf\n${help}.fi\n")
endforeach()
string(APPEND include "\n[EXIT STATUS]\n0 done; 1 the job or the decode failed; 2 a bad option or value; "
       "130 interrupted.\n\n[FILES]\n.TP\n.I libinkweave.so\nthe render plug-in, looked for beside the program, "
       "in ../lib and in ../lib/inkweave.\n\n[SEE ALSO]\n.BR lp (1),\n.BR lpadmin (8)\n")
get_filename_component(dir "${OUTPUT}" DIRECTORY)
file(WRITE "${dir}/inkweave.h2m" "${include}")
execute_process(
  COMMAND ${HELP2MAN} --no-info --no-discard-stderr --section 1
          --name "print documents through an inkjet printer's render plug-in and decode its streams"
          --include "${dir}/inkweave.h2m" --output "${OUTPUT}" "${PROGRAM}"
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "help2man failed (${result})")
endif()
