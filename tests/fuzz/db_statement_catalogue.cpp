// The statement catalogue reads XML text that an administrator may edit: any bytes must leave it
// either with statements or without, never crashed, and every name that was read must be found.
#include "ydb_config_reader.h"

#include <QDomDocument>
#include <QDomElement>
#include <QDomNodeList>
#include <QSharedPointer>
#include <QString>
#include <QTextStream>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    QString copy = text;
    YDbConfigReader* reader = YDbConfigReader::instance();
    reader->parse(QSharedPointer<QTextStream>::create(&copy, QIODevice::ReadOnly));

    // The same document, read independently: its last statement of each name must be the one
    // that the catalogue holds.
    QDomDocument document;
    if (document.setContent(text)) {
        const QDomNodeList statements = document.elementsByTagName(QStringLiteral("statement"));
        for (int i = statements.count() - 1; i >= 0; --i) {
            const QDomElement element = statements.at(i).toElement();
            const QString name = element.attribute(QStringLiteral("name"));
            bool later = false;
            for (int j = i + 1; j < statements.count() && !later; ++j)
                later = statements.at(j).toElement().attribute(QStringLiteral("name")) == name;
            if (!later && reader->getStatement(name) != element.attribute(QStringLiteral("sql")))
                abort();
        }
    }
    YDbConfigReader::release();
    return 0;
}
