#pragma once

#include <cstdint>
#include <optional>

#include <kwtsdk/export.h>
#include <kwtsdk/file_time.h>

namespace kwtsdk {

/// One file of the recorder's store.
class KWTSDK_EXPORT KWTFileHeader {
 public:
  /// `filesize` in bytes. The creation date is creatTime's toDate(), absent where that is none.
  static KWTFileHeader headerWithCreatTime(const std::optional<KWTFileTime>& creatTime,
                                           std::int64_t recordType, std::uint64_t filesize, bool exist);

  /// Whether the recorder says that the file is there.
  bool exist() const { return exist_; }
  void setExist(bool exist) { exist_ = exist; }

  /// KWTFileTime::toDate() of what the recorder sent: in the year 24 rather than 2024, and without
  /// daylight-saving time. Adding 2000 years does not mend it: in those days places had zones of their own,
  /// minutes beside today's. created() is the instant.
  std::optional<Date> creatTime() const { return creatTime_; }
  void setCreatTime(std::optional<Date> creatTime) { creatTime_ = creatTime; }

  /// When the recording was made: KWTFileTime::instant() of what the recorder sent, whatever setCreatTime()
  /// was given. None when it sent no time.
  std::optional<Date> created() const { return created_; }

  /// The recorder's type byte, not interpreted.
  std::int64_t recordType() const { return recordType_; }
  void setRecordType(std::int64_t recordType) { recordType_ = recordType; }

  /// In bytes, a multiple of 32768 when it comes from the recorder.
  std::uint64_t filesize() const { return filesize_; }
  void setFilesize(std::uint64_t filesize) { filesize_ = filesize; }

 private:
  bool exist_ = false;
  std::optional<Date> creatTime_, created_;
  std::int64_t recordType_ = 0;
  std::uint64_t filesize_ = 0;
};

}  // namespace kwtsdk
