#include "demos.h"

#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QFileInfo>

namespace {

// What a daemon declares it knows: the names, types and defaults of its parameters.
const char* const DEPLOYMENT_DESCRIPTOR = R"(<?xml version="1.0"?>
<deploymentDescriptor>
  <parameters>
    <parameter name="quickstart.log_level" type="int">
      <defaultValues><defaultValue><fixed>1</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="quickstart.rotation_mb" type="int">
      <defaultValues><defaultValue><fixed>10</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="quickstart.workers" type="int">
      <defaultValues><defaultValue><fixed>4</fixed></defaultValue></defaultValues>
    </parameter>
  </parameters>
</deploymentDescriptor>)";

} // namespace

int demoSettings(DemoContext& context)
{
    QTextStream& out = context.out;
    // The ini file is copied beside the program by the build.
    const QString iniPath = QFileInfo(context.programPath).absolutePath() + "/quickstart.ini";
    try {
        YParametersRegistry::init(QString::fromLatin1(DEPLOYMENT_DESCRIPTOR));
        YParametersRegistry* registry = YParametersRegistry::getInstance();
        // Lives as long as the registry, which keeps a pointer to it.
        static YIniFileValuesManager values(QStringList(iniPath), registry->getParametersHash());
        registry->addParameterValuesManager(&values);
        context.logLevel = values.getValue(QStringLiteral("quickstart.log_level")).toInt();
        context.rotationMegabytes
            = values.getValue(QStringLiteral("quickstart.rotation_mb")).toInt();
        context.workers = values.getValue(QStringLiteral("quickstart.workers")).toInt();
    } catch (const YException& e) {
        out << "settings could not be read: " << e.what() << "\n";
        return 1;
    }
    out << "settings from " << iniPath << ": log level " << context.logLevel << ", rotation at "
        << context.rotationMegabytes << " MiB, " << context.workers << " workers (default)\n";
    const bool ok = context.logLevel == 2 && context.rotationMegabytes == 1 && context.workers == 4;
    out << (ok ? "settings demo: ok\n" : "settings demo: FAILED\n");
    return ok ? 0 : 1;
}
