#pragma once

// All of the public interface.

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/bytes.h>
#include <kwtsdk/callbacks.h>
#include <kwtsdk/cmd_response.h>
#include <kwtsdk/cmd_type.h>
#include <kwtsdk/context.h>
#include <kwtsdk/error.h>
#include <kwtsdk/file_header.h>
#include <kwtsdk/file_time.h>
#include <kwtsdk/files.h>
#include <kwtsdk/log.h>
#include <kwtsdk/opus_convert_type.h>
#include <kwtsdk/opus_converter.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/platform.h>
#include <kwtsdk/record_packet_result.h>
#include <kwtsdk/recorder_uuid.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/settings.h>
#include <kwtsdk/uuid.h>
#include <kwtsdk/version.h>
