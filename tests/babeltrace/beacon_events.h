#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER beacon

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "tests/babeltrace/beacon_events.h"

#if !defined(TESTS_BABELTRACE_BEACON_EVENTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define TESTS_BABELTRACE_BEACON_EVENTS_H

#include <lttng/tracepoint.h>

LTTNG_UST_TRACEPOINT_EVENT(beacon, at, LTTNG_UST_TP_ARGS(int, place),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_integer(int, place, place)))

#endif

#include <lttng/tracepoint-event.h>
