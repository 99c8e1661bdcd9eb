#pragma once

#include "tools/axis/Axis.h"
#include "tools/axis/Source.h"
#include "tools/manifest/Manifest.h"

#include <vector>

namespace NimaPost {

/// Keeps the manifest of a folder. What it tells is used by others.
class ManifestSource : public FileSource<Manifest, Stage::kLogs, EventKind::kRecord> {
  public:
    using FileSource::FileSource;

  private:
    std::optional<Manifest> ReadContent(FolderFile& file, InputFile& input) override;
};

/// Gives the files the times that they had on the device, and tells the axis when they were collected. What
/// the files contradict is noted there.
void ApplyManifest(const Manifest& manifest, std::vector<FolderFile>& files, Axis& axis);

/// Adds what was noted as contradictory to the manifest's own findings.
void ReportContradictions(const Axis& axis, FolderFile& manifest);

} // namespace NimaPost
