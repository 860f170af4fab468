/**
 * The handlers of the command table. Each takes the parser's context and returns SCPI_RES_OK, or SCPI_RES_ERR
 * with an error queued. A refused command changes nothing.
 */
#ifndef ORVAN_SIM_MODULE_HANDLERS_H
#define ORVAN_SIM_MODULE_HANDLERS_H

#include <string>

#include "model.h"
#include "scpi/types.h"

namespace sim_module {

// Tag: row of the settings table.

scpi_result_t set_setting(scpi_t* context);

/** With MINimum, MAXimum or DEFault, a quantity returns that value instead of the present one. */
scpi_result_t query_setting(scpi_t* context);

// Tag: a TableKind.

scpi_result_t define_table(scpi_t* context); /**< "name" */
scpi_result_t query_defined_table(scpi_t* context);
scpi_result_t set_table_data(scpi_t* context); /**< all rows of the selected table, value by value */
scpi_result_t delete_table(scpi_t* context);   /**< "name" */
scpi_result_t delete_all_tables(scpi_t* context);
scpi_result_t reverse_list(scpi_t* context);

scpi_result_t catalog_files(scpi_t* context); /**< the names, or one empty string */
scpi_result_t store_file(scpi_t* context);    /**< "name" */
scpi_result_t load_file(scpi_t* context);     /**< "name" */
scpi_result_t delete_file(scpi_t* context);   /**< "name" */

// Tag: an ImageKind.

/** A block with the image. Error -161 for an empty one, -250 for one that the module refuses. */
scpi_result_t take_image(scpi_t* context);

// Without a tag.

scpi_result_t restart(scpi_t* context); /**< the module answers, then is away for a while */

scpi_result_t delete_file_of_any_kind(scpi_t* context); /**< "name" */
scpi_result_t delete_all_files(scpi_t* context);
scpi_result_t query_file_size(scpi_t* context); /**< "name" */

scpi_result_t set_flatness_pair(scpi_t* context);   /**< frequency, correction; replaces that frequency's */
scpi_result_t query_flatness_pair(scpi_t* context); /**< number of the pair from 1, default the last */
scpi_result_t set_flatness_points(scpi_t* context); /**< keeps that many pairs, the lowest frequencies */
scpi_result_t query_flatness_points(scpi_t* context);
scpi_result_t set_flatness_data(scpi_t* context); /**< all pairs: frequency, correction, frequency, ... */
scpi_result_t preset_flatness(scpi_t* context);   /**< removes all pairs */

scpi_result_t set_clock(scpi_t* context); /**< year, month, day, hour, minute, second */
scpi_result_t query_temperature(scpi_t* context);
scpi_result_t trigger(scpi_t* context); /**< -211 unless the trigger source is BUS */
scpi_result_t self_test(scpi_t* context);

/** A text of the module's identity. */
template <std::string Identity::*field>
scpi_result_t query_identity(scpi_t* context);

} // namespace sim_module

#endif
