#include <Vx/Reclaimable.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iReclaimRegistry.h>

Reclaimable::Reclaimable() { OS()->reclaimRegistry()->add(this); }

Reclaimable::~Reclaimable() { OS()->reclaimRegistry()->remove(this); }
