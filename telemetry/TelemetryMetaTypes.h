#pragma once

// Registers the value types that cross threads and queued connections; safe to call repeatedly.
void registerTelemetryMetaTypes();
