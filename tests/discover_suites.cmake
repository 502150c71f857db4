# Included by ctest: one test for each suite of cases in `program`, run in `sandbox`; several for the suites in
# `sharded`, and one for each case of those in `alone`. They get the labels in `labels`. A program that is not
# built has none. One for another processor is run by `emulator`, but for the cases that this cannot run.
cmake_policy(VERSION 3.25)
if(NOT EXISTS "${program}")
  return()
endif()
set(left_out)
set(seconds 300)
if(emulator)
  set(seconds 1800) # What computes takes minutes there, and more than five on a busy machine.
  set(not_in_emulator
      # It has no ptrace(), by which these run a child call by call,
      DiskRecorderTest.* InterleavingTest.* *PowerLossTest.* *SaversTest.* *RegistryCrashTest.*
      *RegistryForgottenFlushTest.* *RegistryKilledSaveTest.* ProfileProcessesTest.*
      # and em_host finds out why a program is not executed.
      RunCommandTest.ACollectorThatTheSystemDoesNotExecuteIsExplained
      # It makes each vfork() a fork().
      ChildProgramTest.TheChildCopiesNoMemory
      # Each open() looks at every directory of the path, two thousand of them here.
      DirectoryDepthTest.RemovesAsDeepAsPathsReachWithoutNeedOfStack DirectoryDepthTest.StopsWhereNoPathReaches
      # In /proc it stands in place of the program.
      ProcessTableTest.ReadsNameAndExecutableAtOnce ProcessTableTest.ReadsTheMemoryOfAProcess)
  list(JOIN not_in_emulator ":" left_out)
  string(PREPEND left_out "-")
endif()
execute_process(COMMAND ${emulator} "${program}" --gtest_list_tests "--gtest_filter=*${left_out}"
                OUTPUT_VARIABLE list RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${program} does not list its cases: ${result}")
endif()

# add_case_test(TEST FILTER [NAME=VALUE...]): with these variables in its environment.
function(add_case_test test filter)
  add_test("${test}" "${sandbox}" ${emulator} "${program}" "--gtest_filter=${filter}${left_out}" --gtest_brief=1)
  set_tests_properties("${test}" PROPERTIES TIMEOUT ${seconds} LABELS "${labels}")
  if(ARGN)
    set_tests_properties("${test}" PROPERTIES ENVIRONMENT "${ARGN}")
  endif()
endfunction()

string(REPLACE ";" "\\;" list "${list}")
string(REPLACE "\n" ";" lines "${list}")
foreach(line IN LISTS lines)
  string(REGEX REPLACE " *#.*" "" line "${line}")
  if(line MATCHES "^([A-Za-z_0-9/]+\\.)$")
    set(suite "${CMAKE_MATCH_1}")
    # Of INSTANTIATION/SUITE, what the source calls the suite.
    string(REGEX MATCHALL "[A-Za-z_0-9]+" parts "${suite}")
    list(LENGTH parts count)
    list(GET parts 0 suite_name)
    if(count GREATER 1)
      list(GET parts 1 suite_name)
    endif()
    set(filter "${suite}*")
    if(suite_name IN_LIST alone)
      continue()
    endif()
  elseif(line MATCHES "^  ([^ ]+)$" AND suite_name IN_LIST alone)
    set(filter "${suite}${CMAKE_MATCH_1}")
  else()
    continue()
  endif()
  string(REGEX REPLACE "\\.\\*$" "" test "${filter}")
  if(suite_name IN_LIST sharded)
    foreach(shard RANGE 11)
      add_case_test("${test}/shard${shard}" "${filter}" GTEST_TOTAL_SHARDS=12 GTEST_SHARD_INDEX=${shard})
    endforeach()
  else()
    add_case_test("${test}" "${filter}")
  endif()
endforeach()
