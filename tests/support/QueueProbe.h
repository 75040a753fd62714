#pragma once

#include <QList>
#include <QStringList>

#include <initializer_list>

// Building a queue for a test, and reading it back column by column.
namespace spinlane::testing {

// A queue of items SN1..SNn (sample 10·i, "Sample i", output /data/i.kvd) with the given statuses
// ("Idle" where the list runs out), owned by "ann" unless `owners` says otherwise, their rows
// filled as the window fills them and row n selected; item i stands in section i of the settings
// file, as after a start.
void makeQueue(qint32 n, const QStringList& statuses = {}, const QStringList& owners = {});

// Adds item n, the next one ("SNn", "Sample n", described "desc", ann of Chem, /data/n.kvd), and
// a row for it.
void addItem(qint32 sample, qint16 experiment, const QString& status = QStringLiteral("Idle"),
             const QString& solvent = QStringLiteral("CDCl3"));
// Adds a row for gQueue(n) as the runner needs it: its number, tag and status.
void addRow(qint32 n);

// Per row, in list order: the record's serial and sample name, the row's number text, the check
// mark, and the status ("row != queue" where the row and the record differ).
QStringList serials();
QStringList sampleNames();
QStringList texts();
QList<bool> checkMarks();
QStringList statuses();

// The fields of gQueue(n) in their order, "|" between them.
QString recordOf(qint32 n);

// "SN2", "SN5" and "Sample 2", "Sample 5" for {2, 5}.
QStringList serialsOf(std::initializer_list<int> numbers);
QStringList namesOf(std::initializer_list<int> numbers);

// The status bar, "|" between the parts: sample, experiment, output file and its tool tip, and
// the progress value and maximum.
QString statusBarShows();

// The lines of the run log at `path`, every date and time in them shown as "T".
QStringList runLogLines(const QString& path);

// Every row i reads formatQueueNumber(i), carries tag i and shows the serial of gQueue(i).
bool rowsNumbered();

} // namespace spinlane::testing
