#include "importdialog.h"

#include "picture.h"
#include "theme.h"
#include "words.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QPointer>
#include <QVBoxLayout>

void PortraitWorker::make(const QString &file)
{
    Portrait portrait;
    QString error;
    m_maker.make(file, &portrait, &error);
    emit made(file, portrait.jpeg, portrait.place, words::portraitProblem(m_maker.problem()));
}

ImportDialog::ImportDialog(LessonControl *lesson, const QStringList &files, QWidget *parent)
    : QDialog(parent),
      m_lesson(lesson),
      m_files(files),
      m_progress(new QProgressBar),
      m_table(new QTableWidget(files.size(), 3)),
      m_summary(new QLabel(tr("Looking for the faces in the pictures…")))
{
    setWindowTitle(tr("Import portraits"));
    resize(620, 420);
    m_progress->setRange(0, files.size());
    m_table->setHorizontalHeaderLabels({tr("File"), tr("Student"), tr("Result")});
    m_table->setEditTriggers(QTableWidget::NoEditTriggers);
    m_table->setSelectionBehavior(QTableWidget::SelectRows);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setColumnWidth(0, 180);
    m_table->setColumnWidth(1, 120);
    for (int row = 0; row < files.size(); ++row) {
        const QFileInfo file(files[row]);
        m_table->setItem(row, 0, new QTableWidgetItem(file.fileName()));
        m_table->setItem(row, 1, new QTableWidgetItem(file.completeBaseName()));
        m_table->setItem(row, 2, new QTableWidgetItem);
    }
    m_summary->setWordWrap(true);
    auto *const buttons = new QDialogButtonBox;
    m_close = buttons->addButton(tr("Stop"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(m_summary);
    layout->addWidget(m_progress);
    layout->addWidget(m_table);
    layout->addWidget(buttons);

    auto *const worker = new PortraitWorker;
    worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, worker, &QObject::deleteLater);
    connect(this, &ImportDialog::nextWanted, worker, &PortraitWorker::make);
    connect(worker, &PortraitWorker::made, this, &ImportDialog::takePortrait);
    m_thread.start();
    next();
}

ImportDialog::~ImportDialog()
{
    m_thread.quit();
    m_thread.wait();
}

QStringList ImportDialog::picturesIn(const QString &folder)
{
    QStringList files;
    const auto found =
        QDir(folder).entryInfoList({"*.jpg", "*.jpeg", "*.png", "*.bmp"}, QDir::Files, QDir::Name);
    for (const QFileInfo &file : found)
        files.append(file.filePath());
    return files;
}

QString ImportDialog::result(int file) const
{
    return m_table->item(file, 2)->text();
}

void ImportDialog::next()
{
    m_progress->setValue(++m_current);
    if (m_current < m_files.size()) {
        emit nextWanted(m_files[m_current]);
        return;
    }
    const int refused = m_files.size() - m_enrolled;
    m_summary->setText(refused == 0 ? tr("All %n student(s) were enrolled.", nullptr, m_enrolled)
                                    : tr("%1 of %2 were enrolled; the list tells why the others were not.")
                                          .arg(m_enrolled)
                                          .arg(m_files.size()));
    m_close->setText(tr("Close"));
    m_lesson->refreshStudents();
    emit finished();
}

void ImportDialog::takePortrait(const QString &file, const QByteArray &jpeg, const QRect &place,
                                const QString &problem)
{
    if (!problem.isEmpty()) {
        tell(problem);
        next();
        return;
    }
    // A portrait from elsewhere has no place in the frame.
    m_lesson->enrol(QFileInfo(file).completeBaseName(), picture::toDataText(jpeg), place,
                    [dialog = QPointer<ImportDialog>(this)](const QString &refusal) {
                        if (!dialog)
                            return;
                        dialog->m_enrolled += refusal.isEmpty();
                        dialog->tell(refusal);
                        dialog->next();
                    });
}

void ImportDialog::tell(const QString &problem)
{
    auto *const item = m_table->item(m_current, 2);
    item->setText(problem.isEmpty() ? tr("enrolled") : problem);
    item->setForeground(problem.isEmpty() ? theme::good() : theme::bad());
    m_table->resizeRowToContents(m_current);
    m_table->scrollToItem(item);
}
