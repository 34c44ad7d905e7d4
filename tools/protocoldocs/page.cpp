#include "page.h"

#include "messages.h"

#include <QMap>
#include <QRegularExpression>
#include <QStringList>

namespace {

using ai::Key;
using ai::Rows;
using ai::Type;

QString typeName(const Key &key)
{
    switch (key.type) {
    case Type::Any:
        return "any";
    case Type::Boolean:
        return "bool";
    case Type::Integer:
        return "int";
    case Type::Unsigned:
        return "unsigned int";
    case Type::Long:
        return "64-bit int";
    case Type::Real:
        return "double";
    case Type::Text:
        return "string";
    case Type::Picture:
        return "picture";
    case Type::Map:
        return "map";
    case Type::List:
        return "list of maps";
    case Type::Codes:
        return "list of unsigned int";
    case Type::BooleanOrZero:
        return "bool, or int 0";
    }
    return {};
}

QString quoted(const char *name)
{
    return QStringLiteral("\"%1\"").arg(name);
}

/// What the key means, with the keys of the maps behind it.
QString meaning(const Key &key)
{
    QStringList entries;
    for (const Key &entry : key.keys)
        entries.append(QStringLiteral("%1 (%2)").arg(quoted(entry.name), typeName(entry)));
    const QString text = key.meaning;
    return entries.isEmpty() ? text : text + ": " + entries.join(", ");
}

QString keyTable(const Rows<Key> &keys)
{
    bool anyOptional = false;
    for (const Key &key : keys)
        anyOptional = anyOptional || key.optional;
    QString table = anyOptional ? "| Key | Type | May be absent | Meaning |\n|---|---|---|---|\n"
                                : "| Key | Type | Meaning |\n|---|---|---|\n";
    for (const Key &key : keys) {
        const QString absent = anyOptional ? (key.optional ? " yes |" : " no |") : "";
        table +=
            QStringLiteral("| %1 | %2 |%3 %4 |\n").arg(quoted(key.name), typeName(key), absent, meaning(key));
    }
    return table;
}

QString errorTable()
{
    QString table = "| Code | Meaning | What to do |\n|---|---|---|\n";
    for (const auto &row : ai::errors)
        table += QStringLiteral("| %1 | %2 | %3 |\n").arg(code(row.error)).arg(row.meaning, row.remedy);
    return table;
}

/// The code with a link to its heading, "### 1030, 1031 raised hands", below the chapter.
QString link(const QString &chapter, unsigned number)
{
    const QRegularExpression heading(QStringLiteral("^### (.*\\b%1\\b.*)$").arg(number),
                                     QRegularExpression::MultilineOption);
    QString anchor = heading.match(chapter).captured(1).toLower();
    anchor.remove(QRegularExpression("[^a-z0-9 -]")).replace(' ', '-');
    return QStringLiteral("[%1](#%2)").arg(number).arg(anchor);
}

QString commandTable(const QString &page)
{
    const int events = page.indexOf("\n## Events\n");
    const QString commandChapter = page.left(events);
    const QString eventChapter = page.mid(events);
    QString table = "| Code | Command | Needs state | Needs a camera | Events |\n|---|---|---|---|---|\n";
    for (const ai::CommandRow &row : ai::commands) {
        QStringList follow;
        for (const ai::Event event : row.events)
            follow.append(link(eventChapter, code(event)));
        table += QStringLiteral("| %1 | %2 | %3 | %4 | %5 |\n")
                     .arg(link(commandChapter, code(row.command)), QString(row.meaning))
                     .arg(code(row.needs))
                     .arg(row.needsCamera ? "yes" : "no", follow.join(", "));
    }
    return table;
}

QMap<QString, Rows<Key>> keyRows()
{
    QMap<QString, Rows<Key>> rows{{"request", ai::requestKeys},
                                  {"request.req_data", ai::requestDataKeys},
                                  {"reply", ai::replyKeys},
                                  {"open-reply", ai::openReplyKeys},
                                  {"event", ai::eventKeys}};
    const auto add = [&rows](const QString &name, const Rows<Key> &keys) {
        rows[name] = keys;
        for (const Key &key : keys) {
            if (!key.keys.empty())
                rows[name + '.' + key.name] = key.keys;
        }
    };
    for (const ai::CommandRow &row : ai::commands) {
        add(QString(row.name) + "-request", row.request);
        add(QString(row.name) + "-reply", row.reply);
    }
    for (const ai::QuestionRow &row : ai::questions)
        add(QString(row.name) + "-reply", row.reply);
    for (const ai::EventRow &row : ai::events)
        add(QString(row.name) + "-event", row.keys);
    return rows;
}

} // namespace

QString withTables(const QString &page, QString *problems)
{
    const QMap<QString, Rows<Key>> rows = keyRows();
    const QRegularExpression place("^<!-- table: (\\S+) -->\n((?:\\|.*\n)*)",
                                   QRegularExpression::MultilineOption);
    QString result;
    int end = 0;
    for (auto matches = place.globalMatch(page); matches.hasNext();) {
        const auto match = matches.next();
        const QString name = match.captured(1);
        result += page.mid(end, match.capturedStart(2) - end);
        end = match.capturedEnd(2);
        if (name == "commands")
            result += commandTable(page);
        else if (name == "errors")
            result += errorTable();
        else if (rows.contains(name) && !rows[name].empty())
            result += keyTable(rows[name]);
        else
            *problems += QStringLiteral("there is no table %1\n").arg(name);
    }
    return result + page.mid(end);
}
