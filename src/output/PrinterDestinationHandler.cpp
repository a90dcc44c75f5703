#include "output/PrinterDestinationHandler.h"

#include <mutex>

namespace {

struct Registration {
    std::mutex mutex;
    std::shared_ptr<PrinterDestinationHandler> handler;
};

Registration& registration() {
    static Registration one;
    return one;
}

} // namespace

void PrinterDestinationHandler::setHandler(std::shared_ptr<PrinterDestinationHandler> handler) {
    const std::lock_guard lock(registration().mutex);
    registration().handler = std::move(handler);
}

std::shared_ptr<PrinterDestinationHandler> PrinterDestinationHandler::handler() {
    const std::lock_guard lock(registration().mutex);
    return registration().handler;
}
