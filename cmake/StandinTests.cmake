# Tests that need a Linux stand-in for a Windows service: the CIM providers behind the MI API,
# the Event Log API over .evtx directories, or this machine's /proc and /sys. natc_test labels
# them "standin"; the Windows build, which calls the real services, does not build them.
set(NATC_STANDIN_TESTS
  cim_core_tests cim_providers_tests cim_machine_truth_tests cim_wql_tests
  platform_mi_tests platform_mi_threading_tests platform_mi_machine_tests
  platform_wevtapi_tests platform_wevtapi_sample_tests platform_wevtapi_render_all_tests
  platform_wevtapi_threading_tests
  mi_client_tests mi_collection_tests mi_collection_machine_tests natc_props_tests
  perf_collection_tests perf_collection_threading_tests perf_collection_machine_tests natc_perf_tests
  perf_loader_tests perf_loader_machine_tests
  event_collection_tests event_collection_sample_tests event_collection_threading_tests
  event_wrapped_log_tests
  natc_events_tests collector_integration_tests natc_run_runner_tests)

# Tests that drive the natc binary through a POSIX shell, signals, a pty or posix_spawn. natc_test
# labels them "posix"; the Windows build does not build them (natc_evtx_dump_matches_linux runs
# natc.exe there).
set(NATC_POSIX_TESTS
  natc_run_process_tests natc_command_line_tests natc_run_state_tests natc_run_crash_tests natc_evtx_tests)
