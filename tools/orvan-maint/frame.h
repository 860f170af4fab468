/**
 * Frames of the maintenance protocol: built, and looked into.
 */
#ifndef ORVAN_MAINT_FRAME_H
#define ORVAN_MAINT_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <maintenance_frame.h>

namespace orvan_maint {

using HaldeElec::Orvan::HALDE_PACKET;
using HaldeElec::Orvan::hwaddr_t;

/** All zero but for these two. */
HALDE_PACKET make_frame(std::string_view opcode, const hwaddr_t& mac);

void put_block(HALDE_PACKET& frame, uint16_t block);
void put_size(HALDE_PACKET& frame, uint16_t size);
/** Replies to a request that is no block of a transfer have the `info` of the request. */
void put_info(HALDE_PACKET& frame, uint32_t info);

uint16_t block_of(const HALDE_PACKET& frame);
uint16_t size_of(const HALDE_PACKET& frame);
uint16_t state_of(const HALDE_PACKET& frame);
uint32_t info_of(const HALDE_PACKET& frame);
hwaddr_t mac_of(const HALDE_PACKET& frame);
bool has_opcode(const HALDE_PACKET& frame, std::string_view opcode);

/** The header and this many bytes of `data`. */
std::span<const uint8_t> wire_bytes(const HALDE_PACKET& frame, size_t data_length);

/** "02:00:0a:00:00:02" */
std::string mac_text(const hwaddr_t& mac);
/** Six bytes in hexadecimal behind colons or hyphens; nothing when it is not that. */
std::optional<hwaddr_t> parse_mac(const std::string& text);

/** A text from elsewhere, fit for a terminal: what is not printable ASCII becomes \xNN. */
std::string printable(std::string_view text);

} // namespace orvan_maint

#endif
