// What hands a product to a printer. The module that knows printers sets one handler at the program's start; without
// one, each printer destination of a run fails with an error that says so.
#pragma once

#include "base/Error.h"
#include "platform/draw/Image.h"

#include <memory>

class VELM_Destination;
class VELM_Output;

class PrinterDestinationHandler {
public:
    virtual ~PrinterDestinationHandler() = default;
    /// Delivers the product of a run to a destination of the printer kind. Called on the run's thread; several runs
    /// call at the same time.
    virtual base::Result<void> process(const VELM_Output& output, const VELM_Destination& destination,
                                       const platform::draw::ImageRef& product) = 0;

    /// Process-wide; set it before any output runs.
    static void setHandler(std::shared_ptr<PrinterDestinationHandler> handler);
    /// None until set.
    static std::shared_ptr<PrinterDestinationHandler> handler();
};
