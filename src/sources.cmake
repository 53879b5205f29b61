# The sources of the library: exactly the files to compile when include/ and src/ are copied into
# another project. scripts/checks/check_layers.py compares the list with the folders.
set(library_sources
  qkmem.cpp

  support/allocator_code.cpp
  support/apart_memory.cpp
  support/assertion.cpp
  support/careful_reading.cpp
  support/cursor.cpp
  support/end_runner.cpp
  support/ending_signals.cpp
  support/exit_code.cpp
  support/exit_handlers.cpp
  support/fifo.cpp
  support/file_names.cpp
  support/format.cpp
  support/glibc_heap.cpp
  support/hash.cpp
  support/heap_counter.cpp
  support/interrupted_thread.cpp
  support/known_paths.cpp
  support/line.cpp
  support/live_threads.cpp
  support/load_library.cpp
  support/memory_map.cpp
  support/modules.cpp
  support/mtx.cpp
  support/nearest_name.cpp
  support/number_set.cpp
  support/option_words.cpp
  support/options.cpp
  support/own_message.cpp
  support/page_arena.cpp
  support/page_buffer.cpp
  support/page_writer.cpp
  support/process_barrier.cpp
  support/process_copy.cpp
  support/replaced_file.cpp
  support/resident_pages.cpp
  support/signal_names.cpp
  support/stack_switch.cpp
  support/stopped_threads.cpp
  support/status.cpp
  support/system.cpp
  support/text.cpp
  support/thread_id.cpp
  support/thread_stack.cpp
  support/tolerant_reading.cpp
  support/unwinder.cpp
  support/utf8.cpp
  support/version.cpp

  symbols/build_id.cpp
  symbols/debug_info.cpp
  symbols/elf_file.cpp
  symbols/elf_note.cpp
  symbols/folding.cpp
  symbols/libdw.cpp
  symbols/module_list.cpp
  symbols/names.cpp

  formats/figures.cpp
  formats/intern_table.cpp
  formats/json.cpp
  formats/openmetrics.cpp
  formats/pprof.cpp
  formats/recording.cpp
  formats/recording_reader.cpp
  formats/row_at_once.cpp
  formats/trace_reader.cpp
  formats/trace_row.cpp
  formats/usual_row.cpp
  formats/xxh64.cpp

  core/handle_array.cpp
  core/registry.cpp
  core/roads.cpp
  core/shutdown.cpp
  core/switches.cpp
  core/tag_shares.cpp

  diag/event.cpp
  diag/failure.cpp
  diag/heap.cpp
  diag/log.cpp
  diag/output_file.cpp
  diag/trace_file.cpp

  history/freed_blocks.cpp

  recording/output.cpp
  recording/recorder.cpp

  profile/address_table.cpp
  profile/booking.cpp
  profile/copies.cpp
  profile/due.cpp
  profile/events.cpp
  profile/labels.cpp
  profile/marks.cpp
  profile/misuses.cpp
  profile/notes.cpp
  profile/options.cpp
  profile/pool.cpp
  profile/recorded.cpp
  profile/recorded_definitions.cpp
  profile/sampling.cpp
  profile/site_table.cpp
  profile/snapshots.cpp
  profile/stacks.cpp
  profile/state.cpp

  lost/areas.cpp
  lost/collected.cpp
  lost/findings.cpp
  lost/inquiry.cpp
  lost/roots.cpp
  lost/search.cpp

  profile/report/callers.cpp
  profile/report/destination.cpp
  profile/report/forgotten.cpp
  profile/report/growth.cpp
  profile/report/growth_report.cpp
  profile/report/json_report.cpp
  profile/report/known_address.cpp
  profile/report/known_blocks.cpp
  profile/report/known_leaks.cpp
  profile/report/library_memory.cpp
  profile/report/managed_block.cpp
  profile/report/metrics_report.cpp
  profile/report/misuse.cpp
  profile/report/misuse_report.cpp
  profile/report/place.cpp
  profile/report/pprof_report.cpp
  profile/report/process_memory.cpp
  profile/report/report.cpp
  profile/report/rows.cpp
  profile/report/text_parts.cpp
  profile/report/text_report.cpp
  profile/report/verdict.cpp

  check/damage.cpp
  check/guards.cpp
  check/new_block.cpp
  check/quarantine.cpp
  check/release.cpp
  check/settings.cpp
  check/unused.cpp

  table/block_index.cpp
  table/blocks.cpp
  table/first_fit.cpp
  table/pointer_array.cpp
  table/pointer_table.cpp
  table/release_notes.cpp
  table/slot_index.cpp
  table/tags.cpp

  accounting/bookkeeping_calls.cpp
  accounting/handle_lookup.cpp
  accounting/kept_calls.cpp
  accounting/pieces.cpp
  accounting/recording.cpp
  accounting/tag_calls.cpp
  accounting/walks.cpp

  check/report/findings.cpp
  check/report/look.cpp
  check/report/options.cpp
  check/report/wrong_release.cpp

  alloc/calloc.cpp
  alloc/free.cpp
  alloc/malloc.cpp
  alloc/managed_array.cpp
  alloc/realloc.cpp
  alloc/registration.cpp
  alloc/shared_steps.cpp
  alloc/strdup.cpp
  alloc/unrecorded.cpp

  handle/clear.cpp
  handle/create.cpp
  handle/destroy.cpp
  handle/forgotten.cpp
  handle/generations.cpp
  handle/handle_array.cpp
  handle/handle_options.cpp
  handle/queries.cpp
  handle/release_walk.cpp
  handle/repeats.cpp

  config/calls_for_c.cpp
  config/check_config.cpp
  config/check_options.cpp
  config/debug_config.cpp
  config/debug_environment.cpp
  config/debug_settings.cpp
  config/dump_config.cpp
  config/known_leaks_file.cpp
  config/kept_text.cpp
  config/log_destination.cpp
  config/module_options.cpp
  config/option_values.cpp
  config/profile_config.cpp
  config/profile_options.cpp
  config/profile_request.cpp
  config/profile_schedule.cpp
  config/profile_words.cpp
  config/recording_switch.cpp
  config/refusal.cpp
  config/watching.cpp

  profile/stack_table.cpp

  report/baseline.cpp
  report/comparison.cpp
  report/describe.cpp
  report/details.cpp
  report/dump.cpp
  report/filters.cpp
  report/growth.cpp
  report/info.cpp
  report/summary.cpp

  life/cleanup.cpp
  life/debugger_table.cpp
  life/failing_end.cpp
  life/fault.cpp
  life/fork.cpp
  life/interruption.cpp
  life/startup.cpp
)
list(TRANSFORM library_sources PREPEND "${CMAKE_CURRENT_LIST_DIR}/")
