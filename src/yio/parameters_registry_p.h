// Not part of the YovoLib API: the operating-system tags of a deployment descriptor.
#ifndef YOVOLIB_PARAMETERS_REGISTRY_P_H
#define YOVOLIB_PARAMETERS_REGISTRY_P_H

#include <QString>

namespace YParametersRegistrySys {

/// Whether an "os" text names the family this build runs on ("All" is handled by the caller).
bool isThisSystem(const QString& os);

} // namespace YParametersRegistrySys

#endif // YOVOLIB_PARAMETERS_REGISTRY_P_H
