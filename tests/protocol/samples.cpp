#include "samples.h"

#include "json.h"

#include <QFile>
#include <QRegularExpression>

QByteArray document(const char *name)
{
    QFile file(QStringLiteral(DOCS "/") + name);
    if (!file.open(QFile::ReadOnly))
        qFatal("there is no %s", name);
    return file.readAll();
}

Samples Samples::ofPage()
{
    const QString page = QString::fromUtf8(document("protocol.md"));
    const QRegularExpression block("^```json\n(.*?)^```$",
                                   QRegularExpression::MultilineOption |
                                       QRegularExpression::DotMatchesEverythingOption);
    // A message begins with a brace at the beginning of a line.
    const QRegularExpression begin("^(?=\\{)", QRegularExpression::MultilineOption);
    Samples samples;
    for (auto blocks = block.globalMatch(page); blocks.hasNext();) {
        const QString text = blocks.next().captured(1);
        QList<QVariantMap> messages;
        for (const QString &message : text.split(begin, Qt::SkipEmptyParts)) {
            QString error;
            messages.append(json::parse(message.toUtf8(), &error).toMap());
            if (!error.isEmpty())
                qFatal("%s in %s", qPrintable(error), qPrintable(message));
        }
        if (messages.size() == 2)
            samples.exchanges.append({messages[0], messages[1]});
        else if (messages.value(0)["type"] == 2)
            samples.events.append(messages[0]);
    }
    return samples;
}
