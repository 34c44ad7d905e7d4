#pragma once

#include <QByteArray>
#include <QList>
#include <QVariantMap>

/// The messages that stand as samples in docs/protocol.md, in its order.
struct Samples
{
    struct Exchange
    {
        QVariantMap request;
        QVariantMap reply;
    };
    QList<Exchange> exchanges;
    QList<QVariantMap> events;

    static Samples ofPage();
};

/// The text of a file of docs.
QByteArray document(const char *name);
