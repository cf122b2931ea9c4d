#include "dbf_writer.h"

#include "test_util.h"

static std::string FieldBytes(const DbfField &field, const std::string &value)
{
    size_t width = field.length > 0 ? (size_t)field.length : 0;
    if (value.size() >= width) return value.substr(0, width);
    std::string padding(width - value.size(), ' ');
    return field.type == 'N' ? padding + value : value + padding;
}

int DbfRecordLength(const std::vector<DbfField> &fields)
{
    int length = 1;
    for (const DbfField &field : fields) length += field.length > 0 ? field.length : 0;
    return length;
}

std::string DbfRecordBytes(const std::vector<DbfField> &fields, const DbfRecord &record)
{
    std::string bytes(1, record.deleted ? '*' : ' ');
    for (size_t i = 0; i < fields.size(); i++)
        bytes += FieldBytes(fields[i], i < record.values.size() ? record.values[i] : std::string());
    return bytes;
}

static std::string Descriptor(const DbfField &field)
{
    std::string d(32, '\0');
    for (size_t i = 0; i < field.name.size() && i < 11; i++) d[i] = field.name[i];
    d[11] = field.type;
    if (field.type == 'N') {
        d[16] = (char)field.length;
        d[17] = (char)field.decimals;
    } else {
        d[16] = (char)(field.length & 0xFF);
        d[17] = (char)((field.length >> 8) & 0xFF);
    }
    return d;
}

std::string DbfTable(const std::vector<DbfField> &fields, const std::vector<DbfRecord> &records,
                     const DbfOptions &options)
{
    size_t headerLength = 32 + 32 * fields.size() + 1 + options.extraHeader.size();
    int64_t count = options.recordCount >= 0 ? options.recordCount : (int64_t)records.size();
    std::string bytes(32, '\0');
    bytes[0] = (char)options.version;
    bytes[1] = 124;  // last update 2024-01-01
    bytes[2] = 1;
    bytes[3] = 1;
    bytes.replace(4, 4, U32((uint32_t)count));
    bytes.replace(8, 2, U16((uint16_t)(options.headerLength >= 0 ? options.headerLength : headerLength)));
    bytes.replace(10, 2, U16((uint16_t)(options.recordLength >= 0 ? options.recordLength
                                                                   : DbfRecordLength(fields))));
    for (const DbfField &field : fields) bytes += Descriptor(field);
    bytes += (char)options.terminator;
    bytes += options.extraHeader;
    for (const DbfRecord &record : records) bytes += DbfRecordBytes(fields, record);
    if (options.endMarker) bytes += '\x1A';
    for (const auto &patch : options.patches) {
        if (bytes.size() < patch.first + patch.second.size())
            bytes.resize(patch.first + patch.second.size(), '\0');
        bytes.replace(patch.first, patch.second.size(), patch.second);
    }
    return bytes;
}

std::string DbtMemo(const std::string &text)
{
    std::string memo = "\xFF\xFF\x08";
    memo += '\0';
    memo += U32((uint32_t)(text.size() + 8));
    memo += text;
    memo.append(512 - memo.size() % 512, '\0');
    return memo;
}

std::string DbtFile(const std::vector<std::string> &texts, std::vector<int> *blocks)
{
    std::string body;
    if (blocks) blocks->clear();
    for (const std::string &text : texts) {
        if (blocks) blocks->push_back(1 + (int)(body.size() / 512));
        body += DbtMemo(text);
    }
    std::string header(512, '\0');
    header.replace(0, 4, U32((uint32_t)(1 + body.size() / 512)));
    return header + body;
}
