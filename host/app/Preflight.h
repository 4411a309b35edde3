#pragma once

#include "framework/core/Ref.h"
#include "framework/data/Attributes.h"
#include "host/app/Gadget.h"
#include "host/app/JsonOutput.h"
#include "host/app/Rendering.h"
#include "host/preflight/PreflightReport.h"

#include <cstdio>

namespace Host {

/// The pre-flight report of a rendered batch on its own, for no product: codes and figures.
PreflightReport preflightOfBatch(const RenderedBatch& batch, const PreflightLimits& limits);

/// The pre-flight report of a batch handed to the gadget, checked also against the target
/// product's tracks. Those are read as a user sees them: the rows of the track table, and each
/// one's ISRC in the inspector while the row is selected alone.
PreflightReport preflightOfTable(Gadget& gadget, const RenderedBatch& batch, const PreflightLimits& limits);

/// The report as a table of figures, one row per file, each followed by its findings.
void printPreflight(const RenderedBatch& batch, const PreflightReport& report, FILE* out);

/// One file's verdict, figures and findings, as the JSON documents carry them.
KVX::Ref<KVX::Attributes> preflightDocument(const RenderedBatch::File& file, const PreflightReport::Row& row);

/// preflightDocument for a command's JSON output, the yes-or-no figures as true and false.
JsonOutput::Value preflightJson(JsonOutput& json, const RenderedBatch::File& file, const PreflightReport::Row& row);

/// The report of `sorvel check` into `json`: "result" (the worst verdict) and "tracks".
void checkDocument(JsonOutput& json, const RenderedBatch& batch, const PreflightReport& report);

} // namespace Host
