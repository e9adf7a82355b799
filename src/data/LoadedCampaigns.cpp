#include "drovel/notify/LoadedCampaigns.h"

#include <algorithm>
#include <charconv>

#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

void LoadedCampaigns::add(std::int64_t campaignID, std::optional<std::int64_t> siteID) {
    auto& sites = store[campaignID];
    if (siteID) sites.push_back(*siteID);
}

void LoadedCampaigns::remove(std::int64_t campaignID, std::int64_t siteID) {
    auto entry = store.find(campaignID);
    if (entry == store.end()) return;
    std::erase(entry->second, siteID);
}

void LoadedCampaigns::removePending(std::int64_t campaignID, std::optional<std::int64_t> siteID) {
    auto entry = store.find(campaignID);
    if (entry == store.end()) return;
    if (!siteID) {
        store.erase(entry);
        return;
    }
    if (std::erase(entry->second, *siteID) > 0 && entry->second.empty()) store.erase(entry);
}

bool LoadedCampaigns::needToRangeForSite() const {
    return std::any_of(store.begin(), store.end(), [](const auto& entry) { return entry.second.empty(); });
}

void LoadedCampaigns::writeJson(core::JsonWriter& writer) const {
    writer.beginObject().key("store").beginObject();
    for (const auto& [campaignID, siteIDs] : store) {
        writer.key(std::to_string(campaignID)).beginArray();
        for (std::int64_t siteID : siteIDs) writer.value(siteID);
        writer.endArray();
    }
    writer.endObject().endObject();
}

std::string LoadedCampaigns::toJson() const { return core::encodeJson(*this); }

core::Result<LoadedCampaigns> LoadedCampaigns::fromJson(std::string_view text) {
    return json::decodeDocument<LoadedCampaigns>(text, [](json::JsonReader& reader, json::JsonValue root) {
        std::optional<LoadedCampaigns> loaded;
        reader.object(root, [&](std::string_view key, json::JsonValue member) {
            if (key != "store") return reader.skip(member);
            loaded.emplace();
            reader.object(member, [&](std::string_view campaignKey, json::JsonValue sites) {
                std::int64_t campaignID = 0;
                auto [end, error] = std::from_chars(campaignKey.data(), campaignKey.data() + campaignKey.size(), campaignID);
                if (error != std::errc() || end != campaignKey.data() + campaignKey.size())
                    reader.fail("expected a campaign id as the key");
                auto& list = loaded->store[campaignID];
                list.clear();
                reader.array(sites, [&](json::JsonValue site) { list.push_back(reader.int64(site)); });
            });
        });
        return json::required(reader, loaded, "store");
    });
}

}  // namespace drovel::notify
