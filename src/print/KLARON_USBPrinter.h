// A dye-sublimation printer as a page sees it. Whoever implements it keeps up the page's status, colorStatus,
// printerQueuePosition, isPrinting, "datePrintStart" and "datePrintComplete", calls its statusBlock and resultBlock,
// and enters and leaves its groupPrint. It is shared; pages hold it weakly.
#pragma once

#include <memory>
#include <string>

class KLARON_PrintPage;

class KLARON_USBPrinter {
public:
    virtual ~KLARON_USBPrinter() = default;
    /// Takes a page to print it. Any thread; returns before the page is printed.
    virtual void printPage(const std::shared_ptr<KLARON_PrintPage>& page) = 0;
    virtual std::string description() const = 0;
};
