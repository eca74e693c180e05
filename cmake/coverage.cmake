# Counters are only in what is judged (scripts/coverage.sh): the library and the servers. Threads
# count into the same places. A child takes no counts along when it begins another program: writing
# them costs allocations, which the sweep counts.
set(counted zeb2_objects)
if(ZEB_BUILD_TOOLS)
  list(APPEND counted zeb_serverkit zebmsgd_core zebmsgd zebseriald_core zebseriald zeblogd_core
    zeblogd)
endif()
foreach(target IN LISTS counted)
  target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fno-builtin-execv
    -fno-builtin-execvp)
endforeach()
