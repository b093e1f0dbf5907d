#include "ydb_config_reader.h"

#include <QDomNodeList>

YDbConfigReader* YDbConfigReader::ms_instance = nullptr;

YDbConfigReader::YDbConfigReader() = default;

YDbConfigReader::~YDbConfigReader() = default;

YDbConfigReader* YDbConfigReader::instance()
{
    if (ms_instance == nullptr)
        ms_instance = new YDbConfigReader();
    return ms_instance;
}

void YDbConfigReader::release()
{
    delete ms_instance;
    ms_instance = nullptr;
}

void YDbConfigReader::parse(QSharedPointer<QTextStream> stream)
{
    if (stream.isNull())
        return;
    _document = QDomDocument(QStringLiteral("YDbConfigReader"));
    // A text that isn't well-formed gives no statements at all, not the part before the fault
    // that the XML reader may have built: a half-read catalogue would fail later and far away.
    if (!_document.setContent(stream->readAll()))
        _document = QDomDocument(QStringLiteral("YDbConfigReader"));
    const QDomNodeList statements = _document.elementsByTagName(QStringLiteral("statement"));
    for (int i = 0; i < statements.count(); ++i)
        doParseStatement(statements.at(i).toElement());
}

void YDbConfigReader::doParseStatement(QDomElement element)
{
    if (element.isNull())
        return;
    _statements[element.attribute(QStringLiteral("name"))]
        = element.attribute(QStringLiteral("sql"));
}

QString YDbConfigReader::getStatement(const QString& name) const
{
    return _statements.value(name);
}
