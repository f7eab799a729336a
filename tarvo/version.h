#pragma once

// The one place that states the version; the build reads it from here.
#define TARVO_VERSION_MAJOR 0
#define TARVO_VERSION_MINOR 1
#define TARVO_VERSION_PATCH 0
