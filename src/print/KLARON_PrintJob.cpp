#include "KLARON_PrintJob.h"

std::shared_ptr<KLARON_PrintJob> KLARON_PrintJob::convertToJob(const base::Value&) {
    return nullptr;
}

void KLARON_PrintJob::writeToURL(const base::URL&, const std::function<void(const base::Result<void>&)>&) const {}
