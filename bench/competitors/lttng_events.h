#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "competitors/lttng_events.h"

#if !defined(BENCH_COMPETITORS_LTTNG_EVENTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define BENCH_COMPETITORS_LTTNG_EVENTS_H

#include <lttng/tracepoint.h>

LTTNG_UST_TRACEPOINT_EVENT(bench, plain, LTTNG_UST_TP_ARGS(), LTTNG_UST_TP_FIELDS())

LTTNG_UST_TRACEPOINT_EVENT(bench, three, LTTNG_UST_TP_ARGS(unsigned, a, unsigned, b, unsigned, c),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_integer(unsigned, a, a)
                                                   lttng_ust_field_integer(unsigned, b, b)
                                                       lttng_ust_field_integer(unsigned, c, c)))

// The session does not enable these.
LTTNG_UST_TRACEPOINT_EVENT(bench, plain_off, LTTNG_UST_TP_ARGS(), LTTNG_UST_TP_FIELDS())

LTTNG_UST_TRACEPOINT_EVENT(bench, three_off, LTTNG_UST_TP_ARGS(unsigned, a, unsigned, b, unsigned, c),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_integer(unsigned, a, a)
                                                   lttng_ust_field_integer(unsigned, b, b)
                                                       lttng_ust_field_integer(unsigned, c, c)))

#endif

#include <lttng/tracepoint-event.h>
