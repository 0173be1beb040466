/* The smallest useful agent: it lists the adapters of the host and their ports. */
#include <kxlinhw/kxlinhw.h>
#include <stdio.h>
#include <stdlib.h>

/* The query functions do not know the size of a buffer, so it must hold the largest possible
   result. A host has at most 255 cards; port numbers of a card go up to 255. */
enum { kMostRecords = 255 };

/* The text of a status. Some statuses have no text. */
static void complain(const char* what, uint32_t status) {
    const char* text = GetErrStr((int32_t)status);
    fprintf(stderr, "%s: %s (status %u)\n", what, text != NULL ? text : "no text", status);
}

/* Queries return consecutive records without their last field, the next pointer. Therefore step by
   the KX_..._COPY constants and not by sizeof. */
static uint32_t list_ports(const CardInfo* card, char* buffer) {
    uint32_t length = 0;
    const uint32_t status = GetPortInfo(card->pci_bus_location, buffer, &length);
    for (uint32_t at = 0; at < length; at += KX_PORT_COPY) {
        const PortInfo* port = (const PortInfo*)(buffer + at);
        printf(
            "  port %u: %s, %s, link %s, %u Mb/s, %s\n", port->instance, port->interface_name,
            port->mac, port->link_detected ? "up" : "down", port->settings.speed,
            port->ipv4_address[0] != '\0' ? port->ipv4_address : "no address");
    }
    return status == KX_NO_PORT ? KX_SUCCESS : status; /* a card may have none */
}

static uint32_t list_cards(char* cards, char* ports) {
    uint32_t length = 0;
    uint32_t status = GetCardInfo(cards, &length);
    if (status != KX_SUCCESS) {
        complain("cards", status);
        return status;
    }
    for (uint32_t at = 0; at < length; at += KX_CARD_COPY) {
        const CardInfo* card = (const CardInfo*)(cards + at);
        /* A text may fill its field without a NUL: print no more than the field. */
        printf(
            "%s: %.*s, device %04x, firmware %.*s\n", card->pci_bus_location,
            (int)sizeof card->chip_type, card->chip_type, card->device_id,
            (int)sizeof card->firmware, card->firmware);
        const uint32_t of_card = list_ports(card, ports);
        if (of_card != KX_SUCCESS) {
            complain(card->pci_bus_location, of_card);
            status = of_card;
        }
    }
    return status;
}

int main(void) {
    char* cards = malloc((size_t)kMostRecords * KX_CARD_COPY);
    char* ports = malloc((size_t)kMostRecords * KX_PORT_COPY);
    const int listed = cards != NULL && ports != NULL && list_cards(cards, ports) == KX_SUCCESS;
    free(ports);
    free(cards);
    return listed ? EXIT_SUCCESS : EXIT_FAILURE;
}
