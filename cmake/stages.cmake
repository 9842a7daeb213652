# The stages of the plug-in core (src/), written once: from the top of the pipeline to its foot. A
# stage uses (includes from, links against) only stages on a lower line; the stages of one line do not
# use each other. Two checks hold the core to it: inkweave_stage (src/CMakeLists.txt) refuses, at
# configure time, a stage library that links a stage not below it, and the test
# StageIncludes.PointDownTheStages (cmake/check_stage_includes.cmake) fails on any #include under src/
# that reaches a stage not below its own or anything outside src/ and platform/.
set(INKWEAVE_STAGE_LEVELS
    "plugin"
    "pipeline"
    "halftone raster"
    "color commands"
    "device"
    "data")

# inkweave_stage_rank(<stage> <out-var>): the stage's line, 0 at the top and rising downward; -1 for a
# name that is not a stage.
function(inkweave_stage_rank stage out)
  set(rank 0)
  foreach(level IN LISTS INKWEAVE_STAGE_LEVELS)
    string(REPLACE " " ";" names "${level}")
    if(stage IN_LIST names)
      set(${out} ${rank} PARENT_SCOPE)
      return()
    endif()
    math(EXPR rank "${rank} + 1")
  endforeach()
  set(${out} -1 PARENT_SCOPE)
endfunction()

# inkweave_stage_may_use(<user> <used> <out-var>): TRUE when stage <user> may use stage <used>: the
# same stage, or one on a lower line.
function(inkweave_stage_may_use user used out)
  inkweave_stage_rank(${user} userRank)
  inkweave_stage_rank(${used} usedRank)
  if(user STREQUAL used OR (userRank GREATER_EQUAL 0 AND usedRank GREATER userRank))
    set(${out} TRUE PARENT_SCOPE)
  else()
    set(${out} FALSE PARENT_SCOPE)
  endif()
endfunction()
