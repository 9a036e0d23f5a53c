#include "ReclaimRegistry.h"

void ReclaimRegistry::add(Reclaimable*) {}

void ReclaimRegistry::remove(Reclaimable*) {}
