#pragma once

#include "hours.h"

#include <QSet>
#include <QStringList>

/// What the bridge takes from the room's file. Keys, defaults and meaning: docs/operations.md.
struct Settings
{
    QString school, room;
    QString camera; ///< the address without what is secret in it

    struct Run
    {
        QStringList recognisers; ///< keys of the initialise command
        QStringList analyses;    ///< words
        bool smiles = false;
        Hours hours;      ///< of the analyses
        int silence = 0;  ///< milliseconds without an event after which an analysis is started anew
        int patience = 0; ///< milliseconds without an answer after which the service is ended
    } run;

    struct Recording
    {
        Hours hours;
        QString folder; ///< empty: the service's choice
    } recording;

    struct Broker
    {
        QString host; ///< empty: no broker
        int port = 0;
        QString prefix;
        QString user, password;
        QString caFile, certificateFile, keyFile;
        int keepalive = 0; ///< seconds
        int storeCount = 0;
        qint64 storeBytes = 0;
    } broker;

    struct Privacy
    {
        bool names = false, pictures = false, faces = false, features = false;
    } privacy;

    int metricsPort = 0; ///< on the loopback; 0: no metrics

    QSet<QString> commands; ///< words that the broker may send

    /// The beginning of every topic, without a slash at its end.
    QString topicBase() const { return broker.prefix + '/' + school + '/' + room; }

    /// Reads and checks the whole file. False, with a reason for a person.
    bool read(const QString &path, QString &error);
};
