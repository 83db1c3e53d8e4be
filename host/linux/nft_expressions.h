// The expressions that the rules of the filter's table are made of. A rule is put together from them, and is
// in the batch when its record ends.
//
// Every expression is one that the filter's own command prints and reads again.
#pragma once

#include <linux/netfilter/nf_tables.h>

#include <cstdint>
#include <string_view>

#include "host/linux/nft_sets.h"
#include "host/linux/nft_transaction.h"

struct nftnl_expr;
struct nftnl_rule;

// Registers are counted in words from here on: the devices' names, and behind them the VLAN or its mark.
inline constexpr uint32_t DEVICE_REGISTERS = FILTER_DEVICE_SIZE / sizeof(uint32_t);
inline constexpr uint32_t SOURCE = NFT_REG32_00;
inline constexpr uint32_t TARGET = SOURCE + DEVICE_REGISTERS;
inline constexpr uint32_t VLAN = TARGET + DEVICE_REGISTERS;

inline constexpr uint32_t TYPE_OFFSET = 12;  // bytes into the frame
inline constexpr uint32_t TAG_OFFSET = 14;
inline constexpr uint16_t TAG_VLAN = 0x0fff;
inline constexpr uint32_t NO_MARK = 0;
inline constexpr uint16_t NO_VLAN = 0;

// A rule under construction, which is added to the batch.
struct Rule {
    Batch& batch;
    nftnl_rule* rule;

    Rule(Batch& of, const char* chain, const char* table = FILTER_TABLE);
    Rule(const Rule&) = delete;
    ~Rule();
};

nftnl_expr* append(const Rule& rule, const char* kind);
void loadMeta(const Rule& rule, uint32_t key, uint32_t target);
// Sets the mark to what is in the register VLAN.
void setMark(const Rule& rule);
nftnl_expr* lookUp(const Rule& rule, const char* set, uint32_t source);
nftnl_expr* lookUp(const Rule& rule, FilterSet set, uint32_t source);
// For what is not in the set.
void lookUpNone(const Rule& rule, FilterSet set, uint32_t source);
void lookUpInto(const Rule& rule, FilterSet map, uint32_t source, uint32_t target);
// For what comes from, or goes to, this device.
void compareDevice(const Rule& rule, uint32_t key, std::string_view device);
void conclude(const Rule& rule, int32_t verdict, const char* chain = nullptr);

// These are about the register VLAN, in network order for what a frame carries.
void compare(const Rule& rule, uint32_t comparison, uint32_t value);
void compare(const Rule& rule, uint32_t comparison, uint16_t value);
// Keeps the bits of the mask, and turns those of `flip`.
void maskBits(const Rule& rule, uint32_t mask, uint32_t flip);
void maskBits(const Rule& rule, uint16_t mask, uint16_t flip);
void loadFrame(const Rule& rule, uint32_t offset);
// What the frame's mark is within the mask.
void loadMark(const Rule& rule, uint32_t mask);
// For frames with the bridge's tag, whose VLAN is left in its register.
void loadTag(const Rule& rule, uint16_t protocol, uint16_t bits = TAG_VLAN);

void markWith(const Rule& rule, uint32_t mark);
// Keeps the bits of the mask in the frame's mark and sets those of `bits`.
void changeMark(const Rule& rule, uint32_t mask, uint32_t bits);
// Sets these bits of the mark and leaves the others.
void addToMark(const Rule& rule, uint32_t bits);
