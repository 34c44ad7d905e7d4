// A missing lock that ThreadSanitizer must report: two threads change a number, each under a mutex of its
// own. Marks that tie together what Qt doesn't would hide it.

#include <QMutex>
#include <QThread>

#include <memory>

namespace {

int number = 0;
QMutex mutexes[2];

} // namespace

int main()
{
    std::unique_ptr<QThread> threads[2];
    for (int i = 0; i < 2; ++i) {
        threads[i].reset(QThread::create([i] {
            for (int round = 0; round < 1000; ++round) {
                QMutexLocker locker(&mutexes[i]);
                ++number;
            }
        }));
        threads[i]->start();
    }
    for (const auto &thread : threads)
        thread->wait();
    return number == 0;
}
