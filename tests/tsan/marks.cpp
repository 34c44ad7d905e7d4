// What ThreadSanitizer can't see of the system's Qt, which is built without it: its locks, its events, the
// end of its threads and its thread pool. Linked into every program of a build with ThreadSanitizer, and into
// no other. They can go as soon as the Qt that is linked is built with ThreadSanitizer, too.
//
// A mark says "what this thread did up to here (release) comes before what a thread does after the acquire
// with the same address". The marks are as narrow as what Qt promises: an emission comes before the slots
// that it queues, not before every event of every thread, so that a missing lock is still found.
//
// Two means are used. Functions that our code calls are defined here once more, and no others; the linker
// prefers these, and they call Qt's. Calls within Qt can't be caught that way; for those Qt has callbacks:
// one before each event is delivered, and one before and after each emission of a signal.
#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMetaType>
#include <QMutex>
#include <QRunnable>
#include <QSemaphore>
#include <QThread>
#include <QThreadPool>
#include <QWaitCondition>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <errno.h>
#include <functional>
#include <sanitizer/tsan_interface.h>

static_assert(QT_VERSION_MAJOR == 5 && QT_VERSION_MINOR == 15, "the layouts below are those of Qt 5.15");

// Declared by a private header of Qt.
struct QSignalSpyCallbackSet
{
    using Begin = void (*)(QObject *caller, int index, void **arguments);
    using End = void (*)(QObject *caller, int index);
    Begin signalBegin;
    Begin slotBegin;
    End signalEnd;
    End slotEnd;
};
Q_CORE_EXPORT void qt_register_signal_spy_callbacks(QSignalSpyCallbackSet *callbacks);

// Callbacks for debuggers, declared by another. This one comes near the end of QObject's destructor.
extern Q_CORE_EXPORT quintptr qtHookData[];
constexpr int removeObjectHook = 4;

extern "C" {
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
void AnnotateIgnoreSyncBegin(const char *file, int line);
void AnnotateIgnoreSyncEnd(const char *file, int line);
}

namespace {

/// How the events of queued slots begin, which a private header of Qt declares.
struct SlotEvent : QEvent
{
    int signal;
    const QObject *sender; ///< null for an invokeMethod
    QSemaphore *semaphore; ///< null unless the emission waits for the slot
};

/// Qt's function of that name.
template <class Function>
Function original(const char *symbol)
{
    void *const found = dlsym(RTLD_NEXT, symbol);
    if (!found) {
        std::fprintf(stderr, "marks for ThreadSanitizer: Qt has no %s\n", symbol);
        std::abort();
    }
    return reinterpret_cast<Function>(found);
}

void release(const void *address)
{
    __tsan_release(const_cast<void *>(address));
}

void acquire(const void *address)
{
    __tsan_acquire(const_cast<void *>(address));
}

/// The address that stands for the end of an object's slots, as the object's own stands for its posts.
const void *endOf(const QObject *object)
{
    return reinterpret_cast<const char *>(object) + 1;
}

/// The address that stands for what an object emitted. It lies outside of the object, because an event may be
/// delivered after its sender was deleted, and marks within freed memory are forgotten.
const void *emissionOf(const QObject *object)
{
    static std::array<char, 1 << 16> addresses;
    return &addresses[std::hash<const QObject *>()(object) / alignof(std::max_align_t) % addresses.size()];
}

void beginSignal(QObject *caller, int, void **)
{
    release(emissionOf(caller));
}

void endSignal(QObject *caller, int)
{
    acquire(endOf(caller));
    // The signal finished, whose slots are among the last things that a thread does.
    if (caller == QThread::currentThread())
        release(caller);
}

/// The address that stands for what others do with an object while they end a connection to it.
const void *disconnectionOf(const QObject *object)
{
    return reinterpret_cast<const char *>(object) + 2;
}

void removeObject(QObject *object)
{
    acquire(disconnectionOf(object));
}

/// Delivers an event between marks. Qt calls this again for the same event when we pass it on, and then takes
/// false for "go on".
bool deliver(void **parameters)
{
    thread_local const QEvent *passedOn = nullptr;
    auto *const receiver = static_cast<QObject *>(parameters[0]);
    auto *const event = static_cast<QEvent *>(parameters[1]);
    if (passedOn == event) {
        passedOn = nullptr;
        return false;
    }

    acquire(receiver);
    const void *awaited = nullptr;
    if (event->type() == QEvent::MetaCall) {
        const auto *slotEvent = static_cast<const SlotEvent *>(event);
        if (slotEvent->sender)
            acquire(emissionOf(slotEvent->sender));
        if (slotEvent->semaphore)
            awaited = endOf(slotEvent->sender ? slotEvent->sender : receiver);
    }
    passedOn = event;
    *static_cast<bool *>(parameters[2]) = QCoreApplication::sendEvent(receiver, event);
    if (awaited)
        release(awaited);
    release(QThread::currentThread());
    return true;
}

/// Qt copies the arguments of a queued signal after the callback that marks the emission. Where the copying
/// is our own code, these writes would count as unordered.
struct ArgumentType
{
    using Construct = void *(*)(void *, const void *);

    template <std::size_t number>
    static void *construct(void *where, const void *copy)
    {
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
        void *const made = constructors[number](where, copy);
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        return made;
    }

    static Construct quiet(Construct own)
    {
        constexpr std::array<Construct, 8> wrappers{construct<0>, construct<1>, construct<2>, construct<3>,
                                                    construct<4>, construct<5>, construct<6>, construct<7>};
        const std::size_t number = used++;
        if (number >= wrappers.size())
            return own;
        constructors[number] = own;
        return wrappers[number];
    }

    inline static std::array<Construct, 8> constructors{};
    inline static std::atomic<std::size_t> used{0};
};

/// A runnable of a thread pool between marks.
class MarkedRunnable : public QRunnable
{
public:
    MarkedRunnable(QThreadPool *ofPool, QRunnable *marked) : pool(ofPool), runnable(marked) { release(this); }
    void run() override
    {
        acquire(this);
        const bool ours = runnable->autoDelete();
        runnable->run();
        if (ours)
            delete runnable;
        release(pool);
    }

private:
    QThreadPool *pool;
    QRunnable *runnable;
};

/// What a connection or an invokeMethod calls, between marks: made before it is called, wherever that is, and
/// called before it goes, wherever the last connection or event that holds it goes.
class MarkedSlot : public QtPrivate::QSlotObjectBase
{
public:
    explicit MarkedSlot(QSlotObjectBase *marked) : QSlotObjectBase(act), slot(marked) { release(made()); }

private:
    const void *made() const { return &slot; }
    const void *called() const { return reinterpret_cast<const char *>(&slot) + 1; }

    static void act(int which, QSlotObjectBase *base, QObject *receiver, void **arguments, bool *equal)
    {
        auto *const self = static_cast<MarkedSlot *>(base);
        switch (which) {
        case Call:
            acquire(self->made());
            self->slot->call(receiver, arguments);
            release(self->called());
            break;
        case Compare:
            *equal = self->slot->compare(arguments);
            break;
        case Destroy:
            acquire(self->made());
            acquire(self->called());
            self->slot->destroyIfLastRef();
            delete self;
            break;
        }
    }

    QSlotObjectBase *const slot;
};

std::atomic<QtMessageHandler> messageHandler{nullptr};

/// Calls the log behind the back of ThreadSanitizer. Every thread logs at every step, and the log's locks
/// would put nearly everything that any two threads do into an order.
void logUnseen(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    if (const QtMessageHandler handler = messageHandler)
        handler(type, context, message);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
}

void prepare()
{
    // OpenCV's pool of threads is as foreign as Qt. Without it nothing of ours runs on fewer threads.
    if (void *const found = dlsym(RTLD_DEFAULT, "_ZN2cv13setNumThreadsEi"))
        reinterpret_cast<void (*)(int)>(found)(1);
    static QSignalSpyCallbackSet callbacks{beginSignal, nullptr, endSignal, nullptr};
    qt_register_signal_spy_callbacks(&callbacks);
    QInternal::registerCallback(QInternal::EventNotifyCallback, deliver);
    qtHookData[removeObjectHook] = reinterpret_cast<quintptr>(&removeObject);
}
Q_CONSTRUCTOR_FUNCTION(prepare)

} // namespace

/// What TSAN_OPTIONS adds to.
extern "C" const char *__tsan_default_options()
{
    return TSAN_DEFAULTS;
}

QtMessageHandler qInstallMessageHandler(QtMessageHandler handler)
{
    static const auto qt = original<QtMessageHandler (*)(QtMessageHandler)>(
        "_Z22qInstallMessageHandlerPFv9QtMsgTypeRK18QMessageLogContextRK7QStringE");
    if (std::strcmp(program_invocation_short_name, "test_log") == 0)
        return qt(handler); // there the log itself is tested
    const QtMessageHandler ours = messageHandler.exchange(handler);
    const QtMessageHandler previous = qt(handler ? logUnseen : nullptr);
    return previous == logUnseen ? ours : previous;
}

// Locks. As mutexes, not as bare marks, so that an order of locks that two threads turn round is reported
// too.

void QMutex::lock() noexcept
{
    static const auto qt = original<void (*)(QMutex *)>("_ZN6QMutex4lockEv");
    __tsan_mutex_pre_lock(this, 0);
    qt(this);
    __tsan_mutex_post_lock(this, 0, 0);
}

void QMutex::unlock() noexcept
{
    static const auto qt = original<void (*)(QMutex *)>("_ZN6QMutex6unlockEv");
    __tsan_mutex_pre_unlock(this, 0);
    qt(this);
    __tsan_mutex_post_unlock(this, 0);
}

QMutex::~QMutex()
{
    static const auto qt = original<void (*)(QMutex *)>("_ZN6QMutexD1Ev");
    // One of a library goes when the process ends, under the feet of threads that are still running.
    Dl_info library;
    if (dladdr(this, &library) == 0)
        __tsan_mutex_destroy(this, 0);
    qt(this);
}

/// Gives the mutex away from within Qt.
bool QWaitCondition::wait(QMutex *mutex, QDeadlineTimer deadline)
{
    static const auto qt = original<bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
    const bool woken = qt(this, mutex, deadline);
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 0);
    return woken;
}

void QSemaphore::acquire(int count)
{
    static const auto qt = original<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7acquireEi");
    qt(this, count);
    ::acquire(this);
}

void QSemaphore::release(int count)
{
    static const auto qt = original<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7releaseEi");
    ::release(this);
    qt(this, count);
}

// Slots, and events that come without a signal.

QMetaObject::Connection QObject::connectImpl(const QObject *sender, void **signal, const QObject *receiver,
                                             void **slot, QtPrivate::QSlotObjectBase *slotObject,
                                             Qt::ConnectionType type, const int *types,
                                             const QMetaObject *metaObject)
{
    static const auto qt = original<QMetaObject::Connection (*)(
        const QObject *, void **, const QObject *, void **, QtPrivate::QSlotObjectBase *, Qt::ConnectionType,
        const int *, const QMetaObject *)>(
        "_ZN7QObject11connectImplEPKS_PPvS1_S3_PN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPKiPK11"
        "QMetaObject");
    return qt(sender, signal, receiver, slot, new MarkedSlot(slotObject), type, types, metaObject);
}

void QObject::deleteLater()
{
    static const auto qt = original<void (*)(QObject *)>("_ZN7QObject11deleteLaterEv");
    release(this);
    qt(this);
}

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot, Qt::ConnectionType type,
                                   void *result)
{
    static const auto qt = original<bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType,
                                             void *)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    release(object);
    const bool invoked = qt(object, new MarkedSlot(slot), type, result);
    if (type == Qt::BlockingQueuedConnection)
        acquire(endOf(object));
    return invoked;
}

int QMetaType::registerNormalizedType(const ::QByteArray &name, Destructor destructor,
                                      Constructor constructor, int size, TypeFlags flags,
                                      const QMetaObject *metaObject)
{
    static const auto qt = original<int (*)(const ::QByteArray &, Destructor, Constructor, int, TypeFlags,
                                            const QMetaObject *)>(
        "_ZN9QMetaType22registerNormalizedTypeERK10QByteArrayPFvPvEPFS3_S3_PKvEi6QFlagsINS_8TypeFlagEEPK11"
        "QMetaObject");
    return qt(name, destructor, ArgumentType::quiet(constructor), size, flags, metaObject);
}

// An object that ends calls the other ends of its connections. These wait in their destructor until it is
// through.

void QObject::disconnectNotify(const QMetaMethod &)
{
    release(disconnectionOf(this));
}

// The end of threads and of the pool's work.

bool QThread::wait(QDeadlineTimer deadline)
{
    static const auto qt = original<bool (*)(QThread *, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool ended = qt(this, deadline);
    if (ended)
        acquire(this);
    return ended;
}

bool QThread::isRunning() const
{
    static const auto qt = original<bool (*)(const QThread *)>("_ZNK7QThread9isRunningEv");
    const bool running = qt(this);
    if (!running)
        acquire(this);
    return running;
}

void QThreadPool::start(QRunnable *runnable, int priority)
{
    static const auto qt =
        original<void (*)(QThreadPool *, QRunnable *, int)>("_ZN11QThreadPool5startEP9QRunnablei");
    qt(this, new MarkedRunnable(this, runnable), priority);
}

bool QThreadPool::waitForDone(int milliseconds)
{
    static const auto qt = original<bool (*)(QThreadPool *, int)>("_ZN11QThreadPool11waitForDoneEi");
    const bool done = qt(this, milliseconds);
    if (done)
        acquire(this);
    return done;
}
