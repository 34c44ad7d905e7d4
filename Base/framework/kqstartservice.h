#pragma once

#include <QString>

class IService;
class ServiceServer;

/**
 * Brings a service up: parses the command line, lets the service recover when `--recovery` (`-r`) is given,
 * and creates its server. No client reaches the service before recovery is over.
 *
 * Called on the main thread, with the application object in place; argc and argv are those of the process.
 * Leaves the process with code 0 after `--help` (`-?`) and with code 1 after a bad command line, both with
 * the usage on standard error.
 *
 * @return the server, owned by the caller; it need not be deleted before the process ends
 */
ServiceServer *KQStartService(QString serviceName, IService *service, int argc, char *argv[]);
