#pragma once

/// Gives each analysis, recogniser, request and event its row among the counters, so that all are shown from
/// the start on. Once, before the first request; a second call changes nothing.
void nameCounters();
