#pragma once

#include "apps/live/counters.h"

#include <cstddef>
#include <string>

/// OpenMetrics 1.0 text (https://prometheus.io/docs/specs/om/open_metrics_spec/) for Prometheus.
std::string metricsText(const Counters& counters, std::size_t streams);

/// The memories that are mapped.
std::size_t mappedMemories();

/// Whether the connection to the message broker is open.
bool hasBroker();
