#pragma once

#include <QStringList>

/// The names that BaseStrategy::createNewStrategy knows.
QStringList strategyNames();
