// The catalogue of message formats. Operating-system independent.
#include "message_formatter.h"

#include "yassert.h"

#include <QDomDocument>
#include <QDomElement>

YMessageFormatter* YMessageFormatter::_messageFormatter = nullptr;

YMessageFormatter::YMessageFormatter() = default;

void YMessageFormatter::initFromXml(const QString& xml)
{
    if (_messageFormatter)
        return;
    _messageFormatter = new YMessageFormatter;
    _messageFormatter->loadFromXml(xml);
}

const YMessageFormatter* YMessageFormatter::getInstance()
{
    Y_ASSERT_X(_messageFormatter != 0, "YMessageFormatter::getInstance(): called before init");
    return _messageFormatter;
}

void YMessageFormatter::loadFromXml(const QString& xml)
{
    QDomDocument document;
    // Text that isn't well-formed adds nothing. The parser keeps the elements it read before the
    // error, so the document is dropped rather than walked.
    if (!document.setContent(xml))
        document.clear();
    const QDomElement root = document.documentElement();
    for (QDomElement group = root.firstChildElement(); !group.isNull();
         group = group.nextSiblingElement()) {
        for (QDomElement message = group.firstChildElement(); !message.isNull();
             message = message.nextSiblingElement()) {
            const QString format = message.attribute(QStringLiteral("format"));
            const QString name = message.attribute(QStringLiteral("name"));
            _formatsByName.insert(name.toLower(), format);
            // A missing or bad id is 0.
            const quint32 id = message.attribute(QStringLiteral("id")).toUInt();
            _formatsById.insert(id, format);
        }
    }
}

QString YMessageFormatter::resolveMessageFormat(const QString& name) const
{
    const QHash<QString, QString>::const_iterator it = _formatsByName.constFind(name.toLower());
    if (it == _formatsByName.constEnd())
        return QStringLiteral("Unsupported message name: %1").arg(name);
    return it.value();
}

QString YMessageFormatter::resolveMessageFormat(unsigned int id) const
{
    const QHash<quint32, QString>::const_iterator it = _formatsById.constFind(id);
    if (it == _formatsById.constEnd())
        return QStringLiteral("Unsupported message Id: %1").arg(id);
    return it.value();
}
