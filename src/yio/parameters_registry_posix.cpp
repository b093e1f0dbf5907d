// A deployment descriptor restricts entries by operating-system family, never by version. On
// Linux the family's tags are "Linux_Any" and "LinuxAll"; every other tag, the Windows ones
// included, names another system. The comparison is exact and case sensitive.
#include "parameters_registry_p.h"

bool YParametersRegistrySys::isThisSystem(const QString& os)
{
    return os == QLatin1String("Linux_Any") || os == QLatin1String("LinuxAll");
}
