// The tables of `algtrack inspect`.
#pragma once

#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/analysis/RecordingSurvey.h>
#include <tools/algtrack/terminal/Table.h>

namespace algtrack {

Table callTable(const analysis::RecordingSurvey& survey);
Table streamTable(const analysis::RecordingSurvey& survey);
Table logTable(const analysis::RecordingSurvey& survey);
Table byteTable(const analysis::RecordingSurvey& survey);
Table blobTable(const analysis::RecordingSurvey& survey);

/// From the records to what was delivered, with the sums in between.
Table funnelTable(const analysis::BlobFunnel& funnel);
Json funnelJson(const analysis::BlobFunnel& funnel);

}  // namespace algtrack
