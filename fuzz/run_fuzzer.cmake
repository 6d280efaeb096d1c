# One bounded fuzzing run: new inputs go to a scratch directory emptied first, so the seed corpus in
# the tree is only read; crash inputs land beside it in the build tree.
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH}/corpus)
execute_process(
    COMMAND ${FUZZER} -runs=${RUNS} -max_total_time=${MAX_TIME} -timeout=10 -rss_limit_mb=2048
            -detect_leaks=1 -print_final_stats=1 -artifact_prefix=${SCRATCH}/
            ${SCRATCH}/corpus ${SEEDS}
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${FUZZER} failed (${result}); the input that failed is in ${SCRATCH}")
endif()
