// Brings docs/asyncapi.json and the tables of docs/protocol.md in step with messages.h: protocoldocs DOCS

#include "asyncapi.h"
#include "page.h"

#include <QDir>
#include <QFile>

#include <cstdio>

namespace {

bool write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (file.open(QFile::WriteOnly) && file.write(content) == content.size() && file.flush())
        return true;
    std::fprintf(stderr, "protocoldocs: %s: %s\n", qPrintable(path), qPrintable(file.errorString()));
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    const QDir docs(argc == 2 ? QString::fromLocal8Bit(argv[1]) : QString());
    QFile page(docs.filePath("protocol.md"));
    if (argc != 2 || !page.open(QFile::ReadOnly)) {
        std::fprintf(stderr, "usage: protocoldocs DOCS, the folder with protocol.md\n");
        return 2;
    }
    QString problems;
    const QString text = withTables(QString::fromUtf8(page.readAll()), &problems);
    page.close();
    if (!problems.isEmpty()) {
        std::fprintf(stderr, "protocoldocs: %s", qPrintable(problems));
        return 1;
    }
    const bool written =
        write(page.fileName(), text.toUtf8()) && write(docs.filePath("asyncapi.json"), asyncApiDocument());
    return written ? 0 : 1;
}
