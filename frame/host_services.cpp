// The resolver and the host's version: the state every service wrapper reads.
#include "frame/host_services.h"

REALResolver gResolver = nullptr;
double rbversion = 0.0;

void connect_host(REALResolver resolver) {
  gResolver = resolver;
  if (resolver == nullptr) return;
  // Asked for once, here, and not kept.
  if (auto get_version = reinterpret_cast<double (*)()>(resolver("REALGetRBVersion"))) rbversion = get_version();
}
