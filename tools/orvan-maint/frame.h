/**
 * Builds and parses frames of the maintenance protocol.
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
/** Replies have the `info` of the request, unless it is a block of a transfer. */
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
/** Parses six hexadecimal bytes separated by colons or hyphens; empty if malformed. */
std::optional<hwaddr_t> parse_mac(const std::string& text);

/** Makes a foreign text safe for a terminal: all but printable ASCII becomes \xNN. */
std::string printable(std::string_view text);

} // namespace orvan_maint

#endif
