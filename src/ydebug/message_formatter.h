#ifndef YOVOLIB_MESSAGE_FORMATTER_H
#define YOVOLIB_MESSAGE_FORMATTER_H

#include "yovolib_export.h"

#include <QHash>
#include <QString>

/// The process-wide catalogue of message formats, loaded once from an XML text, that turns a
/// message's name or numeric id into its format string.
///
/// The document: a root element, group elements in it, and in those the message elements with
/// the attributes "id" (decimal), "name" (case-insensitive) and "format". Element names don't
/// count, only nesting and attributes.
class YOVOLIB_EXPORT YMessageFormatter
{
public:
    /// Makes the instance from the text; a second call does nothing, the first text stays.
    static void initFromXml(const QString& xml);
    /// The instance; ends the process through a failed assertion when called before initFromXml.
    static const YMessageFormatter* getInstance();

    /// Adds the document's messages; a later one replaces an earlier of the same name or id.
    /// Text that isn't XML leaves the tables as they were.
    void loadFromXml(const QString& xml);
    /// The format, or "Unsupported message name: <name>", the name as given.
    QString resolveMessageFormat(const QString& name) const;
    /// The format, or "Unsupported message Id: <id>".
    QString resolveMessageFormat(unsigned int id) const;

private:
    YMessageFormatter();
    YMessageFormatter(const YMessageFormatter&) = delete;
    YMessageFormatter& operator=(const YMessageFormatter&) = delete;

    QHash<QString, QString> _formatsByName; // lower-case name to format
    QHash<quint32, QString> _formatsById;

    static YMessageFormatter* _messageFormatter;
};

#endif // YOVOLIB_MESSAGE_FORMATTER_H
