# The suites where threads meet: the transport shared by several callers, handles churned by
# many threads, the calls waiting for their replies, the TEC workers, the trace writer, the
# browser pages (their HTTP thread beside the simulator's serving thread, or beside the console's
# fixture threads). Their tests get the label "threads"
# beside their own ("unit" or "integration", as their binary), and the ThreadSanitizer build runs
# the tests so labelled. ctest reads this file after the lists of tests the binaries of its
# directory gave (tests/ and tests/simulator/).
set(thread_suites "^(Transport|CApiStation|HandleChurn|PendingCalls|TecMonitor|TecSimulator|WorkerThread|TraceWriter|PageServing)[A-Za-z]*\\.")
foreach(binary unit integration c_api simulator simulator_process)
  if(binary MATCHES "^(unit|simulator)$")
    set(label unit)
  else()
    set(label integration)
  endif()
  foreach(test IN LISTS kelvane_${binary}_tests_TESTS)
    if(test MATCHES "${thread_suites}")
      set_tests_properties("${test}" PROPERTIES LABELS "${label};threads")
    endif()
  endforeach()
endforeach()
