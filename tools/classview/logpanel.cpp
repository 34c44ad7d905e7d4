#include "logpanel.h"

#include "json.h"
#include "theme.h"

#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int mostExchanges = 2000;

enum Column
{
    Time,
    What,
    Text,
    Columns
};

} // namespace

void ExchangeModel::append(const Exchange &exchange)
{
    if (m_exchanges.size() >= mostExchanges) {
        beginRemoveRows({}, 0, 0);
        m_exchanges.pop_front();
        endRemoveRows();
    }
    const int row = int(m_exchanges.size());
    beginInsertRows({}, row, row);
    m_exchanges.push_back(exchange);
    endInsertRows();
}

int ExchangeModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_exchanges.size());
}

int ExchangeModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : Columns;
}

QVariant ExchangeModel::data(const QModelIndex &index, int role) const
{
    const Exchange &exchange = at(index.row());
    if (role == Qt::ForegroundRole && exchange.isFailure)
        return theme::bad();
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    switch (index.column()) {
    case Time:
        return exchange.time.toString(QStringLiteral("HH:mm:ss"));
    case What:
        return (exchange.isEvent ? QStringLiteral("◂ ") : QStringLiteral("▸ ")) + exchange.title;
    default:
        return exchange.text;
    }
}

QVariant ExchangeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return section == Time ? tr("Time") : section == What ? tr("What") : tr("Content");
}

LogPanel::LogPanel() : m_filter(new QLineEdit), m_table(new QTableView)
{
    m_shown.setSourceModel(&m_model);
    m_shown.setFilterKeyColumn(-1);
    m_shown.setFilterCaseSensitivity(Qt::CaseInsensitive);
    m_filter->setPlaceholderText(tr("Filter"));
    m_filter->setClearButtonEnabled(true);
    connect(m_filter, &QLineEdit::textChanged, &m_shown, &QSortFilterProxyModel::setFilterFixedString);

    m_table->setModel(&m_shown);
    m_table->setSelectionBehavior(QTableView::SelectRows);
    m_table->setShowGrid(false);
    m_table->setWordWrap(false);
    m_table->setTabKeyNavigation(false);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 6);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setColumnWidth(Time, 70);
    m_table->setColumnWidth(What, 150);
    m_table->setAccessibleName(tr("Requests and events"));

    auto *const copy = new QPushButton(tr("Copy as JSON"));
    theme::setIcon(copy, "copy");
    connect(copy, &QPushButton::clicked, this,
            [this] { QApplication::clipboard()->setText(QString::fromUtf8(json())); });
    auto *const bar = new QHBoxLayout;
    bar->addWidget(m_filter);
    bar->addWidget(copy);
    auto *const layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addLayout(bar);
    layout->addWidget(m_table);
}

void LogPanel::append(const Exchange &exchange)
{
    const auto *const scrollBar = m_table->verticalScrollBar();
    const bool isAtEnd = scrollBar->value() == scrollBar->maximum();
    m_model.append(exchange);
    if (isAtEnd)
        m_table->scrollToBottom();
}

QByteArray LogPanel::json() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows())
        rows.append(m_shown.mapToSource(index).row());
    const bool isAnySelected = !rows.isEmpty();
    for (int row = 0; !isAnySelected && row < m_shown.rowCount(); ++row)
        rows.append(m_shown.mapToSource(m_shown.index(row, 0)).row());
    std::sort(rows.begin(), rows.end());
    QJsonArray array;
    for (const int row : rows) {
        const Exchange &exchange = m_model.at(row);
        QJsonObject object = json::fromVariant(exchange.content).toObject();
        object["time"] = exchange.time.toString(Qt::ISODateWithMs);
        array.append(object);
    }
    return QJsonDocument(array).toJson();
}
