#pragma once

#include "servicelink.h"

#include <QAbstractTableModel>
#include <QLineEdit>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QWidget>

#include <deque>

/// The newest requests and events.
class ExchangeModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    using QAbstractTableModel::QAbstractTableModel;

    void append(const Exchange &exchange);
    const Exchange &at(int row) const { return m_exchanges[std::size_t(row)]; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    std::deque<Exchange> m_exchanges;
};

/// Shows them, with a filter, and copies what is selected, or everything that is shown, as JSON.
class LogPanel : public QWidget
{
    Q_OBJECT

public:
    LogPanel();

    void append(const Exchange &exchange);
    /// What the button copies: an array of objects.
    QByteArray json() const;

private:
    ExchangeModel m_model;
    QSortFilterProxyModel m_shown;
    QLineEdit *m_filter;
    QTableView *m_table;
};
