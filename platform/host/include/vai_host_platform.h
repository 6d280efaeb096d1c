// Extras of the host platform library that Android does not have: a log capture hook for tests and
// tools, and a way to reset the in-memory property store.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Receives every log line (after formatting). Return non-zero to also write the line to stderr.
typedef int (*vai_host_log_sink)(int prio, const char* tag, const char* text, void* user);

// Installs `sink` (null restores plain stderr output). Returns the previous sink.
vai_host_log_sink vai_host_set_log_sink(vai_host_log_sink sink, void* user);

// Forgets every property, then seeds the store again from VAI_PROPERTY_FILE when it is set.
void vai_host_reset_properties(void);

#ifdef __cplusplus
}
#endif
