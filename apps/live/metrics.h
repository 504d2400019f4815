#pragma once

#include "apps/live/counters.h"

#include <cstddef>
#include <string>
#include <string_view>

enum class MetricsFormat {
    OpenMetrics, ///< 1.0, https://prometheus.io/docs/specs/om/open_metrics_spec/
    Plain        ///< the older one, https://prometheus.io/docs/instrumenting/exposition_formats/
};

/// OpenMetrics, unless the header "Accept" names text/plain and not OpenMetrics.
MetricsFormat metricsFormat(std::string_view accept);

/// The media type with its parameters.
const char* mediaType(MetricsFormat format);

/// Counters and gauges of the process.
std::string metricsText(MetricsFormat format, const Counters& counters, std::size_t streams);

/// The memories that are mapped.
std::size_t mappedMemories();

/// Whether the connection to the message broker is open.
bool hasBroker();
