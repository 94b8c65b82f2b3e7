// Adding and releasing the records of the instance database.
#include "core/varnok_instdb.h"
#include "support/varnok_log.h"

#include <cstdlib>

varnok_Dlist *varnok_priv_database = nullptr;
varnok_Dlist *varnok_phy_info = nullptr;

namespace
{

struct collection_texts {
    const char *no_list_memory;
    const char *no_record_memory;
    const char *absent;
};

constexpr collection_texts port_texts = {
    ": not enough memory for api_priv_data.",
    ": not enough memory for api_priv_data instance.",
    ": no memory allocated for api_priv_data.",
};

constexpr collection_texts hw_texts = {
    ": not enough memory for api_phy_info.",
    ": not enough memory for api_phy_info instance.",
    ": no memory allocated for api_phy_info.",
};

// A port record that goes lets go of the records it points to, which it does not own.
void let_go(varnok_priv_db *pdb)
{
    pdb->hw_info = nullptr;
    pdb->parent = nullptr;
}

void let_go(varnok_hw_info *) {}

// A driver that claims ports without end must not take all memory.
constexpr uint64_t records_max = 65536;

// A new record at the list's cursor, or null.
void *new_record(const char *func, varnok_Dlist *list, size_t size, const collection_texts &texts)
{
    void *const record = list->count < records_max ? calloc(1, size) : nullptr;
    if (record == nullptr) {
        LOG_ERROR_AS(func, texts.no_record_memory);
        return nullptr;
    }
    if (varnok_dlist_insert(list, record, 1) == nullptr) {
        LOG_ERROR_AS(func, ": varnok_dlist_insert failed.");
        free(record);
        return nullptr;
    }
    return record;
}

template <class Record>
uint32_t add_record(const char *func, varnok_Dlist *&list, const collection_texts &texts,
                    void (*free_all)(), Record **out)
{
    LOG_TRACE_AS(func, ": entered.");
    if (list == nullptr)
        list = varnok_dlist_new(sizeof(Record));
    if (list == nullptr) {
        LOG_ERROR_AS(func, texts.no_list_memory);
        return 1;
    }
    auto *record = static_cast<Record *>(new_record(func, list, sizeof(Record), texts));
    if (record == nullptr) {
        LOG_ERROR_AS(func, ": failed.");
        free_all();
        return 1;
    }
    *out = record;
    LOG_TRACE_AS(func, ": exiting sucessfully.");
    return 0;
}

template <class Record>
void free_element(const char *func, varnok_Dlist *list, const collection_texts &texts,
                  Record *record)
{
    const varnok::trace_scope scope(func);
    if (list == nullptr) {
        LOG_ERROR_AS(func, texts.absent);
        return;
    }
    // Discovery drops the record that it has just added: no walk then.
    void *element = varnok_dlist_mark(list);
    if (element != record) {
        varnok_dlist_end(list);
        do
            element = varnok::step<Record>(list, false);
        while (element != nullptr && element != record);
    }
    if (element == nullptr)
        return;
    let_go(record);
    varnok_dlist_delete(list, 1);
}

template <class Record>
void free_all(const char *func, varnok_Dlist *&list, const collection_texts &texts)
{
    const varnok::trace_scope scope(func);
    if (list == nullptr) {
        LOG_ERROR_AS(func, texts.absent);
        return;
    }
    // Deleting the last element forward puts the cursor back on the sentinel.
    varnok_dlist_end(list);
    while (Record *element = varnok::step<Record>(list, false)) {
        let_go(element);
        varnok_dlist_delete(list, 1);
    }
    varnok_dlist_destroy(list);
    list = nullptr;
}

} // namespace

uint32_t varnok_alloc_pdb_mem(varnok_priv_db **pdb)
{
    return add_record(__func__, varnok_priv_database, port_texts, varnok_free_all_pdb_mem, pdb);
}

uint32_t varnok_alloc_hw_info_mem(varnok_hw_info **hw_info)
{
    return add_record(__func__, varnok_phy_info, hw_texts, varnok_free_all_hw_info_mem, hw_info);
}

void varnok_free_pdb_element(varnok_priv_db *pdb)
{
    free_element(__func__, varnok_priv_database, port_texts, pdb);
}

void varnok_free_hw_info_element(varnok_hw_info *hw_info)
{
    free_element(__func__, varnok_phy_info, hw_texts, hw_info);
}

void varnok_free_all_pdb_mem(void)
{
    free_all<varnok_priv_db>(__func__, varnok_priv_database, port_texts);
}

void varnok_free_all_hw_info_mem(void)
{
    free_all<varnok_hw_info>(__func__, varnok_phy_info, hw_texts);
}
