# Installs the build into the staging directory STAGE (DESTDIR) and checks: exactly the EXPECTED files
# (relative to PREFIX) and nothing else; the installed command prints with the installed plug-in; the
# manual page has every command; the bash completion offers the commands and an option's choices.
function(fail message)
  message(FATAL_ERROR "${message}")
endfunction()

file(REMOVE_RECURSE "${STAGE}")
execute_process(COMMAND ${CMAKE_COMMAND} -E env DESTDIR=${STAGE} ${CMAKE_COMMAND} --install "${BUILD_DIR}"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
if(NOT result EQUAL 0)
  fail("cmake --install failed: ${error}")
endif()

set(root "${STAGE}${PREFIX}")
file(GLOB_RECURSE installed LIST_DIRECTORIES false RELATIVE "${root}" "${STAGE}/*")
list(SORT installed)
list(SORT EXPECTED)
message(STATUS "Installed under ${PREFIX}:")
foreach(f ${installed})
  message(STATUS "  ${f}")
endforeach()
if(NOT installed STREQUAL EXPECTED)
  fail("installed files differ\n  installed: ${installed}\n  expected:  ${EXPECTED}")
endif()

# The installed command finds the installed plug-in (<prefix>/lib/inkweave) and prints.
execute_process(COMMAND "${root}/bin/inkweave" print "${EXAMPLE}" --quality 150 -o "${STAGE}/job.prn"
                RESULT_VARIABLE result ERROR_VARIABLE error)
if(NOT result EQUAL 0 OR NOT EXISTS "${STAGE}/job.prn")
  fail("the installed inkweave did not print: ${error}")
endif()

# The manual page: every command with its options.
file(READ "${root}/share/man/man1/inkweave.1" manual)
foreach(word ".TH INKWEAVE \"1\"" "inkweave print" "inkweave decode" "inkweave proof" "inkweave dump" "inkweave info"
             "--paper" "--preview-dpi")
  string(FIND "${manual}" "${word}" at)
  if(at EQUAL -1)
    fail("the manual page lacks '${word}'")
  endif()
endforeach()

# The completion, as bash calls it (the words before the cursor | the word at it | what it offers).
# CMake drops empty list items: <empty> stands for an empty word.
set(completion "${root}/share/bash-completion/completions/inkweave")
foreach(case "inkweave|pr|print proof" "inkweave print --paper|l|letter legal" "inkweave proof|--med|--media"
             "inkweave print --quality|<empty>|150 300 600" "inkweave print -o|${STAGE}/jo|${STAGE}/job.prn")
  string(REPLACE "|" ";" parts "${case}")
  list(GET parts 0 before)
  list(GET parts 1 cur)
  string(REPLACE "<empty>" "" cur "${cur}")
  list(GET parts 2 expected)
  execute_process(
    COMMAND bash -c "PATH='${root}/bin':$PATH; source '${completion}'; COMP_WORDS=(${before} '${cur}'); \
COMP_CWORD=$((\${#COMP_WORDS[@]} - 1)); _inkweave; echo \${COMPREPLY[*]}"
    OUTPUT_VARIABLE offered OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT offered STREQUAL expected)
    fail("completion of '${before} ${cur}': '${offered}', expected '${expected}'")
  endif()
endforeach()
