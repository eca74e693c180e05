#include "netpack_int.h"

#include "diag.h"

#include <cerrno>

namespace zeb::netpack {
namespace {

// Copies in whole blocks and may write up to k_write_slack - 1 bytes more, which what follows in
// the package overwrites; the last time they fall into the slack behind it.
char *copy_fixed(char *out, const char *from, size_t size) {
    for (size_t done = 0; done < size; done += k_write_slack)
        memcpy(out + done, from + done, k_write_slack);
    return out + size;
}

} // namespace

size_t text_size(const char *text, const NETDSD_field &field) {
    const size_t size = strnlen(text, field.count);
    if (size == field.count && size != 0)
        ZEB_REPORT("WARNING: Text of field \"%s\" isn't terminated, using its first %zu bytes",
                   field.name, size);
    return size;
}

bool Packing::prepare(const Catalogue &catalogue, const void *pds, const char *dstype,
                      size_t dssize) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr))
        return false;
    record_ = static_cast<const char *>(pds);
    const NETDSD_entry *entry;
    plan_ = find_plan(catalogue, dstype, &entry);
    if (plan_ == nullptr && entry != nullptr)
        return false;
    if (plan_ == nullptr || entry->total_size != dssize || !plan_->sound) {
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
        plan_ = nullptr;
        size_ = dssize + 1;
        return true;
    }
    if (plan_->refusal != nullptr) {
        ZEB_REPORT("Structure \"%s\" cannot be packed: %s", dstype, plan_->refusal);
        return false;
    }
    size_ = plan_->package_size;
    return plan_->count_texts == 0 || measure_texts();
}

bool Packing::measure_texts() {
    if (plan_->count_texts > k_inline_texts) {
        sums_heap_ = static_cast<size_t *>(malloc((plan_->count_texts + 1) * sizeof(size_t)));
        if (!ZEB_CHECK_ERRNO(sums_heap_ != nullptr))
            return false;
        sums_ = sums_heap_;
    }
    size_t sum = 0;
    size_t text = 0;
    for (const PackStep &step : plan_->steps) {
        if (step.kind != StepKind::text)
            continue;
        const size_t size = text_size(record_ + step.offset, *step.field);
        if (size > k_max_name) {
            ZEB_REPORT("Text of field \"%s\" in structure \"%s\" is too long to pack (%zu bytes)",
                       step.field->name, plan_->entry->name, size);
            return false;
        }
        sums_[text++] = sum;
        sum += size;
    }
    sums_[text] = sum;
    size_ += sum;
    return true;
}

void Packing::write(char *out) const {
    if (plan_ == nullptr) {
        *out = 0;
        memcpy(out + 1, record_, size_ - 1);
        return;
    }
    char *const start = out;
    const char *fixed = plan_->fixed.data();
    const size_t *sum = sums_;
    for (const PackStep &step : plan_->steps) {
        out = copy_fixed(out, fixed, step.fixed);
        fixed += step.fixed;
        const char *from = record_ + step.offset;
        switch (step.kind) {
        case StepKind::copy:
            copy_value(out, from, step.bytes);
            out += step.bytes;
            break;
        case StepKind::text: {
            const size_t size = sum[1] - sum[0];
            const auto length = static_cast<uint16_t>(size);
            memcpy(out, &length, sizeof length);
            memcpy(out + sizeof length, from, size);
            out += sizeof length + size;
            ++sum;
            break;
        }
        case StepKind::bad_description:
            ZEB_REPORT("WARNING: Bad structure description for \"%s\"", step.field->type_name);
            break;
        case StepKind::end:
            break;
        }
    }
    write_lengths(start);
}

void Packing::write_lengths(char *out) const {
    for (const LengthPatch &patch : plan_->patches) {
        const size_t texts = sums_[patch.last_text] - sums_[patch.first_text];
        const auto length = static_cast<uint32_t>(patch.length + texts);
        memcpy(out + patch.position + sums_[patch.first_text], &length, sizeof length);
    }
}

void *package_ds(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                 size_t *out_size) {
    Packing packing;
    if (!ZEB_CHECK(out_size != nullptr) || !packing.prepare(catalogue, pds, dstype, dssize))
        return nullptr;
    char *package = static_cast<char *>(malloc(packing.size() + k_write_slack));
    if (!ZEB_CHECK_ERRNO(package != nullptr))
        return nullptr;
    packing.write(package);
    *out_size = packing.size();
    return package;
}

} // namespace zeb::netpack
